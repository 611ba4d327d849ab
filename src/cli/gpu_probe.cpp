#include "cli/gpu_facts.h"
#include "cli/silenced_stderr.h"

namespace tallowbrook {

GpuFacts probeGpu() {
  SilencedStderr quiet;
  if (auto gpu = chooseGpu(vulkanDevices())) return *gpu;
  if (auto gpu = chooseGpu(nvmlDevices())) return *gpu;
  return GpuFacts{};
}

}  // namespace tallowbrook
