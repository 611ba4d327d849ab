#include "audio/meter.h"
#include "audio/mixer.h"

#include <cmath>
#include <vector>

#include <gtest/gtest.h>

namespace tallowbrook {
namespace {

TEST(Meter, NothingAddedGivesSilence) {
  Meter meter;
  Level level = meter.take();
  EXPECT_EQ(level.rms, 0);
  EXPECT_EQ(level.peak, 0);
  EXPECT_FALSE(level.clipped);
}

TEST(Meter, ASecondTakeRightAfterATakeGivesSilence) {
  Meter meter;
  const std::vector<int16_t> loud{-32768, 32767, 1000};
  meter.add(loud);
  Level first = meter.take();
  EXPECT_GT(first.rms, 0);
  EXPECT_TRUE(first.clipped);
  Level second = meter.take();
  EXPECT_EQ(second.rms, 0);
  EXPECT_EQ(second.peak, 0);
  EXPECT_FALSE(second.clipped);
}

TEST(Meter, MostNegativeSampleIsExactlyFullScaleAndClipped) {
  Meter meter;
  const std::vector<int16_t> one{-32768};
  meter.add(one);
  Level level = meter.take();
  EXPECT_EQ(level.rms, 1.0);
  EXPECT_EQ(level.peak, 1.0);
  EXPECT_TRUE(level.clipped);
}

TEST(Meter, MostPositiveSampleIsJustBelowFullScaleAndClipped) {
  Meter meter;
  const std::vector<int16_t> one{32767};
  meter.add(one);
  Level level = meter.take();
  EXPECT_EQ(level.peak, 32767.0 / 32768.0);
  EXPECT_TRUE(level.clipped);

  const std::vector<int16_t> notClipped{-32767};
  meter.add(notClipped);
  level = meter.take();
  EXPECT_EQ(level.peak, 32767.0 / 32768.0);
  EXPECT_FALSE(level.clipped);
}

TEST(Meter, HalfScaleBothWays) {
  Meter meter;
  const std::vector<int16_t> half{16384, -16384};
  meter.add(half);
  Level level = meter.take();
  EXPECT_EQ(level.rms, 0.5);
  EXPECT_EQ(level.peak, 0.5);
  EXPECT_FALSE(level.clipped);
}

TEST(Meter, RmsCoversAllBlocksSinceTheLastTake) {
  Meter meter;
  const std::vector<int16_t> loud{16384, 16384, 16384};  // rms 0.5 over 3 samples
  const std::vector<int16_t> quiet{0};                   // rms 0 over 1 sample
  meter.add(loud);
  meter.add(quiet);
  Level level = meter.take();
  // sqrt(3 x 0.25 / 4), not the mean (0.5 + 0) / 2 of the two blocks.
  EXPECT_DOUBLE_EQ(level.rms, std::sqrt(0.75 / 4));
  EXPECT_EQ(level.peak, 0.5);
}

TEST(Meter, PeakAndClipCarryAcrossBlocksUntilTaken) {
  Meter meter;
  const std::vector<int16_t> clip{32767};
  const std::vector<int16_t> small{100};
  meter.add(clip);
  meter.add(small);
  Level level = meter.take();
  EXPECT_TRUE(level.clipped);
  EXPECT_EQ(level.peak, 32767.0 / 32768.0);
}

TEST(Meter, AnEmptyBlockChangesNothing) {
  Meter meter;
  meter.add({});
  Level level = meter.take();
  EXPECT_EQ(level.rms, 0);
  EXPECT_EQ(level.peak, 0);
}

}  // namespace
}  // namespace tallowbrook

// Two tones at half scale mixed: the sum reaches full scale only when it saturates, and the
// meter calls clipped exactly the saturated samples (32767, -32768), not a peak near 1.0.
TEST(Meter, TwoHalfScaleTonesMixedClipOnlyWhenTheSumSaturates) {
  auto mixedLevel = [](int16_t a, int16_t b) {
    tallowbrook::Mixer mixer;
    mixer.push(std::vector<int16_t>{a}, tallowbrook::MixerQueue::mic);
    mixer.push(std::vector<int16_t>{b}, tallowbrook::MixerQueue::system);
    tallowbrook::Meter meter;
    meter.add(mixer.drain(1));
    return meter.take();
  };
  const auto below = mixedLevel(16383, 16383);  // 32766
  EXPECT_DOUBLE_EQ(below.peak, 32766.0 / 32768);
  EXPECT_FALSE(below.clipped);
  const auto saturated = mixedLevel(16384, 16384);  // 32768 saturates to 32767
  EXPECT_DOUBLE_EQ(saturated.peak, 32767.0 / 32768);
  EXPECT_TRUE(saturated.clipped);
  const auto negative = mixedLevel(-16384, -16384);  // exactly -32768
  EXPECT_DOUBLE_EQ(negative.peak, 1.0);
  EXPECT_TRUE(negative.clipped);
}
