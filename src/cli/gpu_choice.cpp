#include "cli/gpu_facts.h"

namespace tallowbrook {

std::optional<GpuFacts> chooseGpu(const std::vector<GpuCandidate>& devices) {
  using Kind = GpuCandidate::Kind;
  const GpuCandidate* best = nullptr;
  auto rank = [](Kind kind) {
    switch (kind) {
      case Kind::discrete:
        return 3;
      case Kind::integrated:
        return 2;
      case Kind::virtualGpu:
      case Kind::other:
        return 1;
      case Kind::cpu:
        break;
    }
    return 0;
  };
  for (const auto& device : devices) {
    if (rank(device.kind) == 0) continue;
    if (best == nullptr || rank(device.kind) > rank(best->kind)) best = &device;
  }
  if (best == nullptr) return std::nullopt;
  return GpuFacts{true, best->name, best->largestDeviceLocalHeapBytes,
                  best->kind == Kind::integrated};
}

}  // namespace tallowbrook
