#include "audio/rate_follower.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

#include "audio/mixer.h"

using tallowbrook::DrainReport;
using tallowbrook::Mixer;
using tallowbrook::MixerQueue;
using tallowbrook::RateFollower;
using tallowbrook::Samples;

namespace {

Samples tone(size_t from, size_t count, double frequency) {
  Samples out(count);
  for (size_t i = 0; i < count; ++i) {
    out[i] = int16_t(
        std::lround(10000 * std::sin(2 * std::numbers::pi * frequency * double(from + i) / 48000)));
  }
  return out;
}

}  // namespace

TEST(RateFollower, AtRatioOnePassesEverySampleThroughAtOnce) {
  RateFollower follower;
  const Samples first = tone(0, 480, 1000), second = tone(480, 7, 1000);
  EXPECT_EQ(follower.process(first), first);
  EXPECT_EQ(follower.process(second), second);
  EXPECT_TRUE(follower.process({}).empty());
  EXPECT_EQ(follower.ratio(), 1.0);
}

TEST(RateFollower, AQueueAboveItsTargetIsConsumedFasterAndOneBelowSlower) {
  RateFollower fast, slow;
  for (int i = 0; i < 100; ++i) {
    fast.steer(2400, 1920, 0.05);
    slow.steer(1440, 1920, 0.05);
  }
  EXPECT_GT(fast.ratio(), 1.0);
  EXPECT_LT(slow.ratio(), 1.0);
  EXPECT_LE(fast.ratio(), 1 + RateFollower::kMaxCorrection);
  EXPECT_GE(slow.ratio(), 1 - RateFollower::kMaxCorrection);
  fast.reset();
  EXPECT_EQ(fast.ratio(), 1.0);
}

TEST(RateFollower, ASourceThatRunsSlowIsStretchedSmoothlyAndKeepsItsLevel) {
  // The source delivers 47952 frames per wall-clock second (-1000 ppm); the mix takes 48000.
  // Without the follower its queue would lose 48 samples a second.
  RateFollower follower;
  Mixer mixer;
  mixer.push(Samples(1920, 0), MixerQueue::mic);
  mixer.push(Samples(48000 * 200, 0), MixerQueue::system);
  size_t delivered = 0;
  Samples written;
  double carry = 0;
  for (int tick = 0; tick < 20 * 60; ++tick) {  // one minute of 50 ms ticks
    for (int d = 0; d < 5; ++d) {               // deliveries of 10 ms of the source's clock
      const double exact = 479.52 + carry;
      const auto count = size_t(exact);
      carry = exact - double(count);
      mixer.push(follower.process(tone(delivered, count, 1000)), MixerQueue::mic);
      delivered += count;
    }
    DrainReport report;
    const Samples block = mixer.drain(2400, report);
    ASSERT_FALSE(report.micShort) << "ran dry at tick " << tick;
    written.insert(written.end(), block.begin(), block.end());
    follower.steer(report.micQueued, 1920, 0.05);
  }
  EXPECT_NEAR(follower.ratio(), 1 - 0.001, 0.0002);
  // No sample jumps: the stretched tone stays a smooth sine (second differences bounded).
  const double bound = 10000 * std::pow(2 * std::numbers::pi * 1000 / 48000, 2) * 1.05 + 2;
  for (size_t i = 48000; i + 2 < written.size(); ++i) {
    const double second = double(written[i + 2]) - 2 * written[i + 1] + written[i];
    ASSERT_LE(std::abs(second), bound) << "at sample " << i;
  }
}

TEST(MixerQueues, PrimeTrimAndReport) {
  Mixer mixer;
  mixer.push(Samples(100, 3), MixerQueue::mic);
  mixer.push(Samples(50, 4), MixerQueue::system);
  mixer.prime(MixerQueue::system, 10);
  EXPECT_EQ(mixer.queued(), (std::pair<int64_t, int64_t>{100, 60}));
  mixer.trimTo(60);
  EXPECT_EQ(mixer.queued(), (std::pair<int64_t, int64_t>{60, 60}));
  DrainReport report;
  const Samples out = mixer.drain(70, report);
  EXPECT_EQ(out[0], 3) << "the primed zeros come first";
  EXPECT_EQ(out[10], 7);
  EXPECT_EQ(out[65], 0);
  EXPECT_TRUE(report.micShort);
  EXPECT_TRUE(report.systemShort);
  EXPECT_EQ(report.micQueued, 0);
  mixer.push(Samples(100, 3), MixerQueue::mic);
  mixer.push(Samples(100, 3), MixerQueue::system);
  mixer.drain(70, report);
  EXPECT_FALSE(report.micShort);
  EXPECT_EQ(report.systemQueued, 30);
}
