#include "answer/model_runner.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <nlohmann/json.hpp>

extern char** environ;

namespace tallowbrook::Answer {
namespace {

constexpr size_t kErrorTailBytes = 4096;
// A line longer than this is not one the runner writes.
constexpr size_t kMaxLineBytes = 64 * 1024 * 1024;

void closeFd(int& fd) {
  if (fd >= 0) ::close(fd);
  fd = -1;
}

// The last non-empty line of `text`, for a description.
std::string lastLine(const std::string& text) {
  size_t end = text.find_last_not_of("\r\n \t");
  if (end == std::string::npos) return {};
  size_t start = text.find_last_of('\n', end);
  start = start == std::string::npos ? 0 : start + 1;
  return text.substr(start, end + 1 - start);
}

// write() to a pipe whose reader may be gone: EPIPE instead of SIGPIPE, whatever the process's
// SIGPIPE handling (the signal is blocked in this thread and a pending one is taken back).
ssize_t writeWithoutSigpipe(int fd, const char* data, size_t size) {
  sigset_t pipeOnly, saved, pending;
  sigemptyset(&pipeOnly);
  sigaddset(&pipeOnly, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipeOnly, &saved);
  sigpending(&pending);
  bool alreadyPending = sigismember(&pending, SIGPIPE);
  ssize_t written = ::write(fd, data, size);
  int error = errno;
  if (written < 0 && error == EPIPE && !alreadyPending) {
    timespec none{0, 0};
    sigtimedwait(&pipeOnly, nullptr, &none);
  }
  pthread_sigmask(SIG_SETMASK, &saved, nullptr);
  errno = error;
  return written;
}

// "30", "0.7": a limit in seconds for a message.
std::string seconds(std::chrono::milliseconds limit) {
  std::string text = std::to_string(limit.count() / 1000);
  if (limit.count() % 1000 != 0) text += "." + std::to_string(limit.count() % 1000 / 100);
  return text;
}

}  // namespace

ModelRunner::Started ModelRunner::start(const ModelSetup& setup, const Request& request,
                                        std::chrono::milliseconds noProgressLimit) {
  nlohmann::json message = {{"model", setup.model},
                            {"system", request.system},
                            {"user", request.user},
                            {"maxTokens", std::max<int64_t>(request.maxTokens, 0)}};
  std::string body = message.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";

  int in[2] = {-1, -1}, out[2] = {-1, -1}, err[2] = {-1, -1};
  if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) {
    for (int* p : {in, out, err}) closeFd(p[0]), closeFd(p[1]);
    return {nullptr, "deviceNotEligible"};
  }

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  // Its own process group, so the runner and anything it starts are killed together; default
  // signal handling (the helper ignores SIGPIPE).
  sigset_t defaults;
  sigemptyset(&defaults);
  sigaddset(&defaults, SIGPIPE);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  posix_spawnattr_setpgroup(&attributes, 0);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF);

  std::string program = setup.runnerDir + "/" + kRunnerProgram;
  std::string node = setup.node;
  char* argv[] = {node.data(), program.data(), nullptr};
  pid_t pid = -1;
  int spawned = posix_spawn(&pid, node.c_str(), &actions, &attributes, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  closeFd(in[0]);
  closeFd(out[1]);
  closeFd(err[1]);
  if (spawned != 0) {
    closeFd(in[1]);
    closeFd(out[0]);
    closeFd(err[0]);
    return {nullptr, "deviceNotEligible"};
  }
  fcntl(in[1], F_SETFL, O_NONBLOCK);

  std::unique_ptr<ModelRunner> runner(
      new ModelRunner(pid, in[1], out[0], err[0], std::move(body), noProgressLimit));
  for (;;) {
    Line line = runner->readLine();
    if (line.kind != Line::Kind::line) {
      // Died or hung while loading the model.
      runner->finish();
      return {nullptr, "modelNotReady"};
    }
    nlohmann::json doc = nlohmann::json::parse(line.text, nullptr, false);
    std::string type = doc.is_object() ? doc.value("type", "") : "";
    if (type == "ready") return {std::move(runner), ""};
    if (type == "alive") continue;
    runner->finish();
    if (type == "unavailable" && doc.value("reason", "") == "deviceNotEligible") {
      return {nullptr, "deviceNotEligible"};
    }
    return {nullptr, "modelNotReady"};
  }
}

ModelRunner::ModelRunner(pid_t pid, int input, int output, int errors, std::string request,
                         std::chrono::milliseconds noProgressLimit)
    : pid_(pid),
      input_(input),
      output_(output),
      errors_(errors),
      request_(std::move(request)),
      noProgressLimit_(noProgressLimit) {}

ModelRunner::~ModelRunner() {
  if (!reaped_) finish();
  closeAll();
}

void ModelRunner::closeAll() {
  closeFd(input_);
  closeFd(output_);
  closeFd(errors_);
}

ModelRunner::Line ModelRunner::readLine() {
  auto deadline = std::chrono::steady_clock::now() + noProgressLimit_;
  for (;;) {
    size_t newline = pending_.find('\n');
    if (newline != std::string::npos) {
      Line line{Line::Kind::line, pending_.substr(0, newline)};
      pending_.erase(0, newline + 1);
      return line;
    }
    if (output_ < 0 || pending_.size() > kMaxLineBytes) return {Line::Kind::closed, {}};

    pollfd fds[3];
    nfds_t n = 0;
    fds[n++] = {output_, POLLIN, 0};
    if (errors_ >= 0) fds[n++] = {errors_, POLLIN, 0};
    if (input_ >= 0) fds[n++] = {input_, POLLOUT, 0};
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return {Line::Kind::timedOut, {}};
    int ready = ::poll(fds, n, int(std::min<int64_t>(left.count(), 60000)));
    if (ready < 0 && errno != EINTR) return {Line::Kind::closed, {}};
    if (ready <= 0) continue;

    char buffer[65536];
    for (nfds_t i = 0; i < n; ++i) {
      if (fds[i].revents == 0) continue;
      if (fds[i].fd == input_) {
        ssize_t k = writeWithoutSigpipe(input_, request_.data() + requestWritten_,
                                        request_.size() - requestWritten_);
        if (k > 0) requestWritten_ += size_t(k);
        // Done, or the runner stopped reading: either way it gets no more.
        if ((k < 0 && errno != EAGAIN && errno != EINTR) || requestWritten_ == request_.size()) {
          closeFd(input_);
        }
      } else if (fds[i].fd == errors_) {
        ssize_t k = ::read(errors_, buffer, sizeof buffer);
        if (k > 0) {
          errorTail_.append(buffer, size_t(k));
          if (errorTail_.size() > kErrorTailBytes) {
            errorTail_.erase(0, errorTail_.size() - kErrorTailBytes);
          }
        } else if (k == 0 || (errno != EINTR && errno != EAGAIN)) {
          closeFd(errors_);
        }
      } else {
        ssize_t k = ::read(output_, buffer, sizeof buffer);
        if (k > 0) {
          pending_.append(buffer, size_t(k));
          deadline = std::chrono::steady_clock::now() + noProgressLimit_;
        } else if (k == 0 || (errno != EINTR && errno != EAGAIN)) {
          closeFd(output_);
        }
      }
    }
  }
}

std::string ModelRunner::finish() {
  if (reaped_) return {};
  // The runner has said its last line or is of no more use: end it and anything it started.
  ::kill(-pid_, SIGKILL);
  closeAll();
  int status = 0;
  pid_t done;
  do {
    done = ::waitpid(pid_, &status, 0);
  } while (done < 0 && errno == EINTR);
  reaped_ = true;
  if (done != pid_) return "the model runner could not be waited for";
  if (WIFSIGNALED(status)) {
    return "the model runner was ended by signal " + std::to_string(WTERMSIG(status)) + " (" +
           strsignal(WTERMSIG(status)) + ")";
  }
  return "the model runner exited with status " + std::to_string(WEXITSTATUS(status));
}

StreamEvent ModelRunner::next() {
  for (;;) {
    Line line = readLine();
    if (line.kind == Line::Kind::timedOut) {
      finish();
      return {StreamEvent::Kind::failed,
              "the model runner stopped responding: nothing came from it for " +
                  seconds(noProgressLimit_) + " seconds"};
    }
    if (line.kind == Line::Kind::closed) {
      std::string how = finish();
      std::string said = lastLine(errorTail_);
      return {StreamEvent::Kind::failed, "the answer ended before it was complete: " + how +
                                             (said.empty() ? "" : ": " + said)};
    }
    nlohmann::json doc = nlohmann::json::parse(line.text, nullptr, false);
    std::string type = doc.is_object() ? doc.value("type", "") : "";
    if (type == "text" && doc["text"].is_string()) {
      snapshot_ += doc["text"].get<std::string>();
      return {StreamEvent::Kind::snapshot, snapshot_};
    }
    if (type == "alive") continue;
    if (type == "done") {
      finish();
      return {StreamEvent::Kind::ended, {}};
    }
    if (type == "error" && doc["message"].is_string()) {
      finish();
      return {StreamEvent::Kind::failed, doc["message"].get<std::string>()};
    }
    finish();
    return {StreamEvent::Kind::failed, "the model runner sent a line this helper does not read"};
  }
}

}  // namespace tallowbrook::Answer
