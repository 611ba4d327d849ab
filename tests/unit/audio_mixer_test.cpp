#include "audio/mixer.h"

#include <numeric>
#include <vector>

#include <gtest/gtest.h>

namespace tallowbrook {
namespace {

std::vector<int16_t> ramp(size_t count, int16_t first = 1) {
  std::vector<int16_t> out(count);
  for (size_t i = 0; i < count; ++i) out[i] = int16_t(first + int(i % 1000));
  return out;
}

TEST(Mixer, DrainOfNoFramesOrANegativeCountReturnsNothingAndKeepsTheQueues) {
  Mixer mixer;
  mixer.push(ramp(10), MixerQueue::mic);
  mixer.push(ramp(20), MixerQueue::system);
  EXPECT_TRUE(mixer.drain(0).empty());
  EXPECT_TRUE(mixer.drain(-5).empty());
  EXPECT_EQ(mixer.longestQueue(), 20);
  Samples all = mixer.drain(20);
  ASSERT_EQ(all.size(), 20u);
  EXPECT_EQ(all[0], 2);    // 1 + 1
  EXPECT_EQ(all[15], 16);  // system only beyond the microphone's 10
}

TEST(Mixer, AShortSideIsPaddedWithSilence) {
  Mixer mixer;
  const auto mic = ramp(100);
  mixer.push(mic, MixerQueue::mic);
  Samples out = mixer.drain(160);
  ASSERT_EQ(out.size(), 160u);
  EXPECT_EQ(std::vector<int16_t>(out.begin(), out.begin() + 100), mic);
  EXPECT_EQ(std::vector<int16_t>(out.begin() + 100, out.end()), std::vector<int16_t>(60, 0));
  EXPECT_EQ(mixer.longestQueue(), 0);
  EXPECT_EQ(mixer.drain(5), Samples(5, 0));
}

TEST(Mixer, TakesExactlyTheRequestedFramesFromEachQueue) {
  Mixer mixer;
  mixer.push(ramp(300), MixerQueue::mic);
  mixer.push(ramp(50, 10), MixerQueue::system);
  Samples out = mixer.drain(100);
  ASSERT_EQ(out.size(), 100u);
  EXPECT_EQ(out[0], 1 + 10);
  EXPECT_EQ(out[49], 50 + 59);
  EXPECT_EQ(out[50], 51);
  EXPECT_EQ(mixer.longestQueue(), 200);
  Samples rest = mixer.drain(200);
  EXPECT_EQ(rest[0], 101);  // the microphone continues where it stopped
}

TEST(Mixer, SumsSaturate) {
  Mixer mixer;
  const std::vector<int16_t> up{30000, -30000, 32767, 100};
  const std::vector<int16_t> down{30000, -30000, -32768, -300};
  mixer.push(up, MixerQueue::mic);
  mixer.push(down, MixerQueue::system);
  EXPECT_EQ(mixer.drain(4), (Samples{32767, -32768, -1, -200}));
}

TEST(Mixer, AnOverlongQueueKeepsItsNewestFiveSeconds) {
  Mixer mixer;
  std::vector<int16_t> many(240001);
  std::iota(many.begin(), many.end(), 0);  // wraps: values are positions mod 65536
  mixer.push(many, MixerQueue::system);
  EXPECT_TRUE(mixer.takeDropped());
  EXPECT_FALSE(mixer.takeDropped());
  EXPECT_EQ(mixer.longestQueue(), 240000);
  Samples out = mixer.drain(240000);
  EXPECT_EQ(out.front(), many[1]);
  EXPECT_EQ(out.back(), many.back());
}

TEST(Mixer, ExactlyFiveSecondsIsNotTooMuch) {
  Mixer mixer;
  mixer.push(std::vector<int16_t>(240000, 7), MixerQueue::mic);
  EXPECT_FALSE(mixer.takeDropped());
  mixer.push(std::vector<int16_t>(1, 8), MixerQueue::mic);
  EXPECT_TRUE(mixer.takeDropped());
  Samples out = mixer.drain(240000);
  EXPECT_EQ(out.back(), 8);
}

TEST(Mixer, ResetEmptiesBothQueuesAndLowersDropped) {
  Mixer mixer;
  mixer.push(std::vector<int16_t>(240010, 1), MixerQueue::mic);
  mixer.push(std::vector<int16_t>(10, 1), MixerQueue::system);
  mixer.reset();
  EXPECT_FALSE(mixer.takeDropped());
  EXPECT_EQ(mixer.longestQueue(), 0);
  EXPECT_EQ(mixer.drain(3), Samples(3, 0));
}

}  // namespace
}  // namespace tallowbrook
