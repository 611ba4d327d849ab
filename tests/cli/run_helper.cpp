#include "run_helper.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include <gtest/gtest.h>

namespace {

void closeBoth(int fds[2]) {
  if (fds[0] >= 0) close(fds[0]);
  if (fds[1] >= 0) close(fds[1]);
}

}  // namespace

HelperRun runProgram(const std::vector<std::string>& argv, const RunOptions& options) {
  HelperRun result;
  int in[2], out[2], err[2];
  if (pipe2(in, O_CLOEXEC) || pipe2(out, O_CLOEXEC) || pipe2(err, O_CLOEXEC)) {
    ADD_FAILURE() << "pipe: " << std::strerror(errno);
    return result;
  }
  pid_t pid = fork();
  if (pid == 0) {
    dup2(in[0], 0);
    dup2(out[1], 1);
    dup2(err[1], 2);
    for (const auto& name : options.unsetEnv) unsetenv(name.c_str());
    for (const auto& [name, value] : options.env) setenv(name.c_str(), value.c_str(), 1);
    std::vector<char*> words;
    for (const auto& word : argv) words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    signal(SIGPIPE, SIG_DFL);
    execvp(words[0], words.data());
    _exit(127);
  }
  close(in[0]);
  close(out[1]);
  close(err[1]);
  in[0] = out[1] = err[1] = -1;

  int inFd = in[1];
  fcntl(inFd, F_SETFL, O_NONBLOCK);
  size_t written = 0;
  if (options.input.empty()) {
    close(inFd);
    inFd = -1;
  }
  auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(options.timeoutMs);
  bool outOpen = true, errOpen = true;
  signal(SIGPIPE, SIG_IGN);
  while (outOpen || errOpen) {
    pollfd fds[3];
    int n = 0;
    if (outOpen) fds[n++] = {out[0], POLLIN, 0};
    if (errOpen) fds[n++] = {err[0], POLLIN, 0};
    if (inFd >= 0) fds[n++] = {inFd, POLLOUT, 0};
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                    deadline - std::chrono::steady_clock::now())
                    .count();
    if (left <= 0) {
      result.timedOut = true;
      kill(pid, SIGKILL);
      break;
    }
    if (poll(fds, n, int(left)) < 0 && errno != EINTR) break;
    for (int i = 0; i < n; ++i) {
      if (fds[i].revents == 0) continue;
      if (fds[i].fd == inFd) {
        ssize_t k = write(inFd, options.input.data() + written, options.input.size() - written);
        if (k > 0) written += size_t(k);
        if (k < 0 && errno != EAGAIN) written = options.input.size();
        if (written == options.input.size()) {
          close(inFd);
          inFd = -1;
        }
        continue;
      }
      char buffer[65536];
      ssize_t k = read(fds[i].fd, buffer, sizeof buffer);
      if (k <= 0) {
        if (fds[i].fd == out[0])
          outOpen = false;
        else
          errOpen = false;
      } else {
        (fds[i].fd == out[0] ? result.out : result.err).append(buffer, size_t(k));
      }
    }
  }
  if (inFd >= 0) close(inFd);
  int status = 0;
  waitpid(pid, &status, 0);
  if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
  closeBoth(out);
  closeBoth(err);
  return result;
}

HelperRun runHelperFedForever(const std::vector<std::string>& args, const RunOptions& options) {
  std::string command = "yes | exec \"$0\"";
  for (size_t i = 0; i < args.size(); ++i) command += " \"$" + std::to_string(i + 1) + "\"";
  std::vector<std::string> argv{"sh", "-c", command, HELPER_PATH};
  argv.insert(argv.end(), args.begin(), args.end());
  return runProgram(argv, options);
}

HelperRun runHelper(const std::vector<std::string>& args, const RunOptions& options) {
  std::vector<std::string> argv{HELPER_PATH};
  argv.insert(argv.end(), args.begin(), args.end());
  return runProgram(argv, options);
}

std::vector<nlohmann::json> jsonLines(const std::string& out) {
  std::vector<nlohmann::json> lines;
  std::istringstream stream(out);
  std::string line;
  while (std::getline(stream, line)) {
    try {
      lines.push_back(nlohmann::json::parse(line));
    } catch (const nlohmann::json::exception& e) {
      ADD_FAILURE() << "not a JSON line: " << line << " (" << e.what() << ")";
    }
  }
  return lines;
}

void expectFailureDocument(const HelperRun& run, const std::string& message) {
  EXPECT_FALSE(run.timedOut);
  EXPECT_EQ(run.status, 1) << run.out;
  EXPECT_EQ(run.err, "");
  ASSERT_FALSE(run.out.empty());
  EXPECT_EQ(run.out.find('\n'), run.out.size() - 1) << "not exactly one line: " << run.out;
  auto lines = jsonLines(run.out);
  ASSERT_EQ(lines.size(), 1u) << run.out;
  EXPECT_EQ(lines[0], (nlohmann::json{{"type", "error"}, {"message", message}}));
}
