#include <gtest/gtest.h>

#include "cli/gpu_facts.h"

namespace tallowbrook {
namespace {

using Kind = GpuCandidate::Kind;

TEST(ChooseGpu, NothingToChooseFrom) {
  EXPECT_FALSE(chooseGpu({}));
}

TEST(ChooseGpu, CpuDevicesNeverCount) {
  EXPECT_FALSE(chooseGpu({{Kind::cpu, "llvmpipe (LLVM 15.0.6, 256 bits)", 1 << 30}}));
}

TEST(ChooseGpu, DiscreteBeatsIntegratedWhateverTheOrder) {
  auto gpu = chooseGpu({{Kind::cpu, "llvmpipe", 1},
                        {Kind::integrated, "Intel UHD", 2},
                        {Kind::discrete, "RTX 4090", 3},
                        {Kind::discrete, "RTX 3060", 4}});
  ASSERT_TRUE(gpu);
  EXPECT_TRUE(gpu->present);
  EXPECT_EQ(gpu->name, "RTX 4090");
  EXPECT_EQ(gpu->recommendedMaxWorkingSetBytes, 3u);
  EXPECT_FALSE(gpu->unifiedMemory);
}

TEST(ChooseGpu, IntegratedGpuHasUnifiedMemory) {
  auto gpu = chooseGpu({{Kind::virtualGpu, "virtio", 5}, {Kind::integrated, "Radeon 780M", 6}});
  ASSERT_TRUE(gpu);
  EXPECT_EQ(gpu->name, "Radeon 780M");
  EXPECT_TRUE(gpu->unifiedMemory);
}

TEST(ChooseGpu, VirtualAndOtherDevicesCountWhenAlone) {
  auto gpu = chooseGpu({{Kind::other, "odd", 7}, {Kind::virtualGpu, "virtio", 8}});
  ASSERT_TRUE(gpu);
  EXPECT_EQ(gpu->name, "odd");
  EXPECT_FALSE(gpu->unifiedMemory);
}

}  // namespace
}  // namespace tallowbrook
