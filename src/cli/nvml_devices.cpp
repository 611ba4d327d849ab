// NVML is loaded at run time: only NVIDIA machines have it.
#include <dlfcn.h>

#include <cstring>

#include "cli/gpu_facts.h"

namespace tallowbrook {
namespace {

using NvmlReturn = int;
using NvmlDevice = struct NvmlDeviceT*;
constexpr NvmlReturn kNvmlSuccess = 0;
constexpr unsigned kNameLength = 96;  // NVML_DEVICE_NAME_V2_BUFFER_SIZE

struct NvmlMemory {
  unsigned long long total;
  unsigned long long free;
  unsigned long long used;
};

using Init = NvmlReturn (*)();
using Shutdown = NvmlReturn (*)();
using GetCount = NvmlReturn (*)(unsigned*);
using GetHandle = NvmlReturn (*)(unsigned, NvmlDevice*);
using GetName = NvmlReturn (*)(NvmlDevice, char*, unsigned);
using GetMemory = NvmlReturn (*)(NvmlDevice, NvmlMemory*);

}  // namespace

std::vector<GpuCandidate> nvmlDevices() {
  void* nvml = dlopen("libnvidia-ml.so.1", RTLD_NOW | RTLD_LOCAL);
  if (nvml == nullptr) return {};
  auto init = reinterpret_cast<Init>(dlsym(nvml, "nvmlInit_v2"));
  auto shutdown = reinterpret_cast<Shutdown>(dlsym(nvml, "nvmlShutdown"));
  auto count = reinterpret_cast<GetCount>(dlsym(nvml, "nvmlDeviceGetCount_v2"));
  auto handle = reinterpret_cast<GetHandle>(dlsym(nvml, "nvmlDeviceGetHandleByIndex_v2"));
  auto name = reinterpret_cast<GetName>(dlsym(nvml, "nvmlDeviceGetName"));
  auto memory = reinterpret_cast<GetMemory>(dlsym(nvml, "nvmlDeviceGetMemoryInfo"));
  if (!init || !shutdown || !count || !handle || !name || !memory) return {};
  if (init() != kNvmlSuccess) return {};

  std::vector<GpuCandidate> found;
  unsigned devices = 0;
  NvmlDevice device = nullptr;
  char text[kNameLength] = {};
  NvmlMemory info{};
  if (count(&devices) == kNvmlSuccess && devices > 0 && handle(0, &device) == kNvmlSuccess &&
      name(device, text, kNameLength) == kNvmlSuccess && memory(device, &info) == kNvmlSuccess) {
    GpuCandidate gpu;
    gpu.kind = GpuCandidate::Kind::discrete;
    gpu.name.assign(text, strnlen(text, kNameLength));
    gpu.largestDeviceLocalHeapBytes = info.total;
    found.push_back(std::move(gpu));
  }
  shutdown();
  return found;
}

}  // namespace tallowbrook
