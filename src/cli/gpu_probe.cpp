#include "base/silenced_stderr.h"
#include "cli/gpu_facts.h"
#include "cli/gpu_presence.h"

namespace tallowbrook {

GpuFacts probeGpu() {
  SilencedStderr quiet;
  // Without a GPU device, Vulkan could only offer software rasterisers, which never count, at
  // the price of loading every installed driver.
  if (gpuDeviceNodesPresent() || vulkanDriversNamed()) {
    if (auto gpu = chooseGpu(vulkanDevices())) return *gpu;
  }
  // NVML exists only where NVIDIA's driver is installed; without it the load fails at once.
  if (auto gpu = chooseGpu(nvmlDevices())) return *gpu;
  return GpuFacts{};
}

}  // namespace tallowbrook
