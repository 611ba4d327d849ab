// What the capabilities report says about the machine's GPU, and how a device is chosen.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tallowbrook {

// The GPU facts of the report. A default-constructed value is the "not available" answer.
struct GpuFacts {
  bool present = false;
  std::string name;
  uint64_t recommendedMaxWorkingSetBytes = 0;
  bool unifiedMemory = false;
};

// One device as a GPU API describes it.
struct GpuCandidate {
  enum class Kind { other, integrated, discrete, virtualGpu, cpu };
  Kind kind = Kind::other;
  std::string name;
  uint64_t largestDeviceLocalHeapBytes = 0;
};

// Picks the device the helper would use: a discrete GPU first, then an integrated one, then a
// virtual or other one, each time the first in enumeration order. CPU devices (software
// rasterisers) never count. Returns nothing when no device qualifies. Pure.
std::optional<GpuFacts> chooseGpu(const std::vector<GpuCandidate>& devices);

// Devices reported by the Vulkan loader (libvulkan.so.1, loaded at run time). Empty when there
// is no loader, no driver or no device. Main thread only; may write nothing anywhere.
std::vector<GpuCandidate> vulkanDevices();

// The first device NVML (libnvidia-ml.so.1, loaded at run time) reports, for NVIDIA machines
// without a Vulkan loader. Empty when NVML is missing or fails.
std::vector<GpuCandidate> nvmlDevices();

// The machine's GPU: Vulkan's choice (asked only when a GPU device node exists or Vulkan drivers
// are named in the environment, gpu_presence.h), else NVML's, else the "not available" answer.
// Never fails; anything the loaders or drivers print on standard error meanwhile is discarded,
// since standard error belongs to the lid diagnostics. Main thread only, before other threads
// exist.
GpuFacts probeGpu();

}  // namespace tallowbrook
