#include "cli/capabilities.h"

namespace tallowbrook::Capabilities {

Json report(const GpuFacts& gpu, const ModelAvailability& model) {
  return Json{
      {"type", "capabilities"},
      {"vision", true},
      {"metal", gpu.present},
      {"gpuName", gpu.present ? gpu.name : std::string()},
      {"gpuRecommendedMaxWorkingSetBytes",
       gpu.present ? gpu.recommendedMaxWorkingSetBytes : uint64_t{0}},
      {"gpuUnifiedMemory", gpu.present && gpu.unifiedMemory},
      {"localModel", model.available},
      {"localModelReason", model.available ? std::string() : model.reason},
  };
}

void run() {
  writeJsonLine(report(probeGpu(), localModelAvailability()));
}

}  // namespace tallowbrook::Capabilities
