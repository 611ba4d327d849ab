#include <fcntl.h>
#include <unistd.h>

#include "cli/gpu_facts.h"

namespace tallowbrook {
namespace {

// Points standard error at /dev/null for its lifetime and restores it afterwards.
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

}  // namespace

GpuFacts probeGpu() {
  SilencedStderr quiet;
  if (auto gpu = chooseGpu(vulkanDevices())) return *gpu;
  if (auto gpu = chooseGpu(nvmlDevices())) return *gpu;
  return GpuFacts{};
}

}  // namespace tallowbrook
