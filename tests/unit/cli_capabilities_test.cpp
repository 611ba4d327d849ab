#include "cli/capabilities.h"

#include <gtest/gtest.h>

namespace tallowbrook {
namespace {

TEST(CapabilitiesReport, WithoutGpuOrModelUsesTheNotAvailableValues) {
  EXPECT_EQ(serializeJson(Capabilities::report(GpuFacts{}, {false, "deviceNotEligible"})),
            R"({"type":"capabilities","vision":true,"metal":false,"gpuName":"",)"
            R"("gpuRecommendedMaxWorkingSetBytes":0,"gpuUnifiedMemory":false,"localModel":false,)"
            R"("localModelReason":"deviceNotEligible"})");
}

TEST(CapabilitiesReport, WithGpuAndModel) {
  Json r = Capabilities::report(GpuFacts{true, "Apple M2", uint64_t{11453251584}, true},
                                ModelAvailability{true, ""});
  EXPECT_EQ(r.size(), 8u);
  EXPECT_EQ(r["metal"], true);
  EXPECT_EQ(r["gpuName"], "Apple M2");
  EXPECT_EQ(r["gpuRecommendedMaxWorkingSetBytes"].get<uint64_t>(), 11453251584u);
  EXPECT_TRUE(r["gpuRecommendedMaxWorkingSetBytes"].is_number_unsigned());
  EXPECT_EQ(r["gpuUnifiedMemory"], true);
  EXPECT_EQ(r["localModel"], true);
  ASSERT_TRUE(r.contains("localModelReason"));
  EXPECT_EQ(r["localModelReason"], "");
}

TEST(CapabilitiesReport, AbsentGpuIgnoresLeftoverFields) {
  GpuFacts absent;
  absent.name = "stale";
  absent.recommendedMaxWorkingSetBytes = 9;
  absent.unifiedMemory = true;
  Json r = Capabilities::report(absent, {false, "modelNotReady"});
  EXPECT_EQ(r["gpuName"], "");
  EXPECT_EQ(r["gpuRecommendedMaxWorkingSetBytes"], 0);
  EXPECT_EQ(r["gpuUnifiedMemory"], false);
  EXPECT_EQ(r["localModelReason"], "modelNotReady");
}

}  // namespace
}  // namespace tallowbrook
