// Keeping libraries' chatter off standard error, which belongs to the lid diagnostics.
#pragma once

#include <fcntl.h>
#include <unistd.h>

namespace tallowbrook {

// Points standard error at /dev/null for the object's lifetime and restores it afterwards.
// The redirection is process-wide: use it only while no other thread writes to standard
// error (no thread in this helper does, outside the recorder's lid diagnostics).
class SilencedStderr {
 public:
  SilencedStderr() {
    saved_ = dup(STDERR_FILENO);
    int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (saved_ >= 0 && null >= 0) dup2(null, STDERR_FILENO);
    if (null >= 0) close(null);
  }
  ~SilencedStderr() {
    if (saved_ >= 0) {
      dup2(saved_, STDERR_FILENO);
      close(saved_);
    }
  }
  SilencedStderr(const SilencedStderr&) = delete;
  SilencedStderr& operator=(const SilencedStderr&) = delete;

 private:
  int saved_ = -1;
};

}  // namespace tallowbrook
