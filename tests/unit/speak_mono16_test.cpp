// Synthesiser buffers to 16-bit mono samples.
#include "speech/mono16.h"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

namespace tallowbrook::Speak {
namespace {

AudioBuffer floats(const std::vector<float>& samples, int channels = 1) {
  return AudioBuffer{
      true,          SampleFormat::float32, 22050, channels, int64_t(samples.size()) / channels,
      samples.data()};
}

TEST(Mono16, FloatsAreClampedScaledAndTruncated) {
  std::vector<float> in{1.5f, -1.5f, 0.5f, -0.5f, 1.0f, -1.0f, 0.0f, 0.99999f, -0.00001f};
  auto out = mono16(floats(in));
  ASSERT_TRUE(out);
  EXPECT_EQ(*out, (Samples{32767, -32767, 16383, -16383, 32767, -32767, 0, 32766, 0}));
}

TEST(Mono16, NotANumberIsFullScale) {
  std::vector<float> in{std::numeric_limits<float>::quiet_NaN(),
                        -std::numeric_limits<float>::infinity()};
  EXPECT_EQ(*mono16(floats(in)), (Samples{32767, -32767}));
}

TEST(Mono16, OnlyTheFirstChannelIsKept) {
  std::vector<float> stereo{0.5f, -1.0f, 1.0f, 0.0f};
  EXPECT_EQ(*mono16(floats(stereo, 2)), (Samples{16383, 32767}));
  std::vector<int16_t> three{1, 2, 3, 4, 5, 6};
  EXPECT_EQ(*mono16(AudioBuffer{true, SampleFormat::int16, 22050, 3, 2, three.data()}),
            (Samples{1, 4}));
}

TEST(Mono16, SixteenBitSamplesAreCopied) {
  std::vector<int16_t> in{-32768, -1, 0, 1, 32767};
  EXPECT_EQ(*mono16(AudioBuffer{true, SampleFormat::int16, 22050, 1, 5, in.data()}), Samples(in));
}

TEST(Mono16, AnEmptyBufferGivesNoSamples) {
  auto out = mono16(AudioBuffer{true, SampleFormat::float32, 22050, 1, 0, nullptr});
  ASSERT_TRUE(out);
  EXPECT_TRUE(out->empty());
}

TEST(Mono16, OtherFormatsGiveNothing) {
  std::vector<int32_t> in{1, 2};
  EXPECT_EQ(mono16(AudioBuffer{true, SampleFormat::int32, 22050, 1, 2, in.data()}), std::nullopt);
  EXPECT_EQ(mono16(AudioBuffer{true, SampleFormat::int32, 22050, 1, 0, nullptr}), std::nullopt);
}

}  // namespace
}  // namespace tallowbrook::Speak
