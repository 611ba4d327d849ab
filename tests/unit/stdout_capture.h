// Redirects the process's standard output into a temporary file for the lifetime of the
// object, so tests can read the exact bytes the writer produced.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string>

class StdoutCapture {
 public:
  StdoutCapture() {
    char path[] = "/tmp/tallowbrook-stdout-XXXXXX";
    fd_ = mkstemp(path);
    unlink(path);
    saved_ = dup(STDOUT_FILENO);
    dup2(fd_, STDOUT_FILENO);
  }
  ~StdoutCapture() {
    restore();
    if (fd_ >= 0) close(fd_);
  }
  StdoutCapture(const StdoutCapture&) = delete;
  StdoutCapture& operator=(const StdoutCapture&) = delete;

  // Everything written so far; restores standard output first.
  std::string text() {
    restore();
    std::string bytes;
    char buffer[4096];
    ssize_t n;
    lseek(fd_, 0, SEEK_SET);
    while ((n = read(fd_, buffer, sizeof buffer)) > 0) bytes.append(buffer, size_t(n));
    return bytes;
  }

 private:
  void restore() {
    if (saved_ >= 0) {
      dup2(saved_, STDOUT_FILENO);
      close(saved_);
      saved_ = -1;
    }
  }
  int fd_ = -1;
  int saved_ = -1;
};
