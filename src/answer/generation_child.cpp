#include "answer/generation_child.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace tallowbrook::Answer {
namespace {

constexpr size_t kErrorTailBytes = 4096;
constexpr auto kAliveInterval = std::chrono::seconds(1);

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

// "30", "0.7": a limit in seconds for a message.
std::string seconds(std::chrono::milliseconds limit) {
  std::string text = std::to_string(limit.count() / 1000);
  if (limit.count() % 1000 != 0) text += "." + std::to_string(limit.count() % 1000 / 100);
  return text;
}

// The child's side of the pipe. A report that cannot be written (the helper is gone) ends the
// child at once.
class PipeSink final : public GenerationSink {
 public:
  explicit PipeSink(int fd) : fd_(fd) {}

  void unavailable(std::string_view reason, std::string_view detail) override {
    std::string payload(reason);
    payload.push_back('\0');
    payload.append(detail);
    send(FrameKind::unavailable, payload);
  }
  void refused(std::string_view message) override { send(FrameKind::refused, message); }
  void ready() override { send(FrameKind::ready); }
  void piece(std::string_view bytes) override { send(FrameKind::piece, bytes); }
  void alive() override {
    // Callers may report progress as often as they like; the helper needs a sign a second.
    auto now = std::chrono::steady_clock::now();
    if (now - lastSent_ < kAliveInterval) return;
    send(FrameKind::alive);
  }
  void done() override { send(FrameKind::done); }
  void failed(std::string_view message) override { send(FrameKind::failed, message); }

 private:
  void send(FrameKind kind, std::string_view payload = {}) {
    std::string frame = encodeFrame(kind, payload);
    size_t written = 0;
    while (written < frame.size()) {
      ssize_t n = ::write(fd_, frame.data() + written, frame.size() - written);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) _exit(1);
      written += size_t(n);
    }
    lastSent_ = std::chrono::steady_clock::now();
  }

  int fd_;
  // From the start: the first sign of life is due a second in, so a quick load wakes the
  // helper only for what it must read (the helper's wake-ups also count as busy processors
  // when the model picks its threads).
  std::chrono::steady_clock::time_point lastSent_ = std::chrono::steady_clock::now();
};

// In the forked child: dies with the helper, keeps standard input and output (the helper's JSON
// lines) out of reach, runs the body and ends without the helper's exit handlers.
[[noreturn]] void runChild(const GenerationChild::Body& body, pid_t helper, int reports,
                           int errors) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != helper) _exit(1);  // the helper died before the line above
  int devNull = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  if (devNull >= 0) {
    dup2(devNull, STDIN_FILENO);
    dup2(devNull, STDOUT_FILENO);
  }
  dup2(errors, STDERR_FILENO);
  signal(SIGPIPE, SIG_DFL);
  PipeSink sink(reports);
  body(sink);
  _exit(0);
}

}  // namespace

GenerationChild::Started GenerationChild::start(const Body& body,
                                                const Text::UserCharacters& characters,
                                                std::chrono::milliseconds noProgressLimit) {
  int reports[2] = {-1, -1}, errors[2] = {-1, -1};
  if (pipe2(reports, O_CLOEXEC) != 0 || pipe2(errors, O_CLOEXEC) != 0) {
    for (int* p : {reports, errors}) closeFd(p[0]), closeFd(p[1]);
    return {nullptr, "deviceNotEligible", {}};
  }
  // Nothing buffered may be written twice.
  std::fflush(nullptr);
  pid_t helper = getpid();
  pid_t pid = fork();
  if (pid == 0) {
    ::close(reports[0]);
    ::close(errors[0]);
    runChild(body, helper, reports[1], errors[1]);
  }
  closeFd(reports[1]);
  closeFd(errors[1]);
  if (pid < 0) {
    closeFd(reports[0]);
    closeFd(errors[0]);
    return {nullptr, "deviceNotEligible", {}};
  }

  std::unique_ptr<GenerationChild> child(
      new GenerationChild(pid, reports[0], errors[0], characters, noProgressLimit));
  for (;;) {
    Frame frame;
    if (child->readFrame(&frame) != Read::frame) {
      // Died, hung or babbled while loading the model.
      child->finish();
      return {nullptr, "modelNotReady", {}};
    }
    switch (frame.kind) {
      case FrameKind::ready:
        return {std::move(child), {}, {}};
      case FrameKind::alive:
        continue;
      case FrameKind::unavailable: {
        child->finish();
        std::string reason = frame.payload.substr(0, frame.payload.find('\0'));
        if (reason != "deviceNotEligible") reason = "modelNotReady";
        return {nullptr, reason, {}};
      }
      case FrameKind::refused:
        child->finish();
        return {nullptr, {}, frame.payload.empty() ? "the request was refused" : frame.payload};
      default:
        child->finish();
        return {nullptr, "modelNotReady", {}};
    }
  }
}

GenerationChild::GenerationChild(pid_t pid, int reports, int errors,
                                 const Text::UserCharacters& characters,
                                 std::chrono::milliseconds noProgressLimit)
    : pid_(pid),
      reports_(reports),
      errors_(errors),
      text_(characters),
      noProgressLimit_(noProgressLimit) {}

GenerationChild::~GenerationChild() {
  finish();
  closeFd(reports_);
  closeFd(errors_);
}

GenerationChild::Read GenerationChild::readFrame(Frame* frame) {
  auto deadline = std::chrono::steady_clock::now() + noProgressLimit_;
  for (;;) {
    if (auto next = reader_.next()) {
      *frame = std::move(*next);
      return Read::frame;
    }
    if (reader_.broken()) return Read::garbage;
    if (reports_ < 0) return Read::closed;

    pollfd fds[2];
    nfds_t n = 0;
    fds[n++] = {reports_, POLLIN, 0};
    if (errors_ >= 0) fds[n++] = {errors_, POLLIN, 0};
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return Read::timedOut;
    int ready = ::poll(fds, n, int(std::min<int64_t>(left.count(), 60000)));
    if (ready < 0 && errno != EINTR) return Read::closed;
    if (ready <= 0) continue;

    char buffer[65536];
    for (nfds_t i = 0; i < n; ++i) {
      if (fds[i].revents == 0) continue;
      int& fd = fds[i].fd == reports_ ? reports_ : errors_;
      ssize_t k = ::read(fd, buffer, sizeof buffer);
      if (k < 0 && (errno == EINTR || errno == EAGAIN)) continue;
      if (k <= 0) {
        closeFd(fd);
        continue;
      }
      if (&fd == &errors_) {
        errorTail_.append(buffer, size_t(k));
        if (errorTail_.size() > kErrorTailBytes) {
          errorTail_.erase(0, errorTail_.size() - kErrorTailBytes);
        }
      } else {
        reader_.append(std::string_view(buffer, size_t(k)));
        deadline = std::chrono::steady_clock::now() + noProgressLimit_;
      }
    }
  }
}

std::string GenerationChild::finish() {
  if (reaped_) return {};
  // The child has said its last word or is of no more use.
  ::kill(pid_, SIGKILL);
  int status = 0;
  pid_t done;
  do {
    done = ::waitpid(pid_, &status, 0);
  } while (done < 0 && errno == EINTR);
  reaped_ = true;
  closeFd(reports_);
  // Whatever it wrote on standard error before it ended is still in the pipe.
  while (errors_ >= 0) {
    char buffer[4096];
    ssize_t k = ::read(errors_, buffer, sizeof buffer);
    if (k < 0 && errno == EINTR) continue;
    if (k <= 0) break;
    errorTail_.append(buffer, size_t(k));
  }
  if (errorTail_.size() > kErrorTailBytes) {
    errorTail_.erase(0, errorTail_.size() - kErrorTailBytes);
  }
  closeFd(errors_);
  if (done != pid_) return "the model's process could not be waited for";
  if (WIFSIGNALED(status)) {
    return "the model's process was ended by signal " + std::to_string(WTERMSIG(status)) + " (" +
           strsignal(WTERMSIG(status)) + ")";
  }
  return "the model's process exited with status " + std::to_string(WEXITSTATUS(status));
}

bool GenerationChild::flushInto(StreamEvent* event) {
  auto last = text_.finish();
  if (!last) return false;
  *event = {StreamEvent::Kind::snapshot, std::move(*last)};
  return true;
}

StreamEvent GenerationChild::next() {
  StreamEvent event;
  if (pendingEnd_) {
    event = std::move(*pendingEnd_);
    pendingEnd_.reset();
    return event;
  }
  // Ends with `end`, after a last snapshot of the settled text when there is one.
  auto endWith = [&](StreamEvent end) {
    StreamEvent last;
    if (flushInto(&last)) {
      pendingEnd_ = std::move(end);
      return last;
    }
    return end;
  };
  for (;;) {
    Frame frame;
    Read read = readFrame(&frame);
    if (read == Read::timedOut) {
      finish();
      return endWith(
          {StreamEvent::Kind::failed, "the model stopped responding: nothing came from it for " +
                                          seconds(noProgressLimit_) + " seconds"});
    }
    if (read == Read::garbage) {
      finish();
      return endWith({StreamEvent::Kind::failed, "the model's process sent something unreadable"});
    }
    if (read == Read::closed) {
      std::string how = finish();
      std::string said = lastLine(errorTail_);
      return endWith({StreamEvent::Kind::failed, "the answer ended before it was complete: " + how +
                                                     (said.empty() ? "" : ": " + said)});
    }
    switch (frame.kind) {
      case FrameKind::piece:
        if (auto snapshot = text_.append(frame.payload)) {
          return {StreamEvent::Kind::snapshot, std::move(*snapshot)};
        }
        continue;
      case FrameKind::alive:
        continue;
      case FrameKind::done:
        finish();
        return endWith({StreamEvent::Kind::ended, {}});
      case FrameKind::failed:
        finish();
        return endWith({StreamEvent::Kind::failed, frame.payload.empty()
                                                       ? "the model failed without a reason"
                                                       : frame.payload});
      default:
        finish();
        return endWith(
            {StreamEvent::Kind::failed, "the model's process sent something unreadable"});
    }
  }
}

}  // namespace tallowbrook::Answer
