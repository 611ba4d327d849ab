// The converter at equal rates: channels folded and rounded, every frame out at once.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "audio/soxr_converter.h"
#include "audio/to_target.h"

namespace {

using namespace tallowbrook;

std::vector<std::byte> bytesOf(const std::vector<int16_t>& samples) {
  std::vector<std::byte> bytes(samples.size() * 2);
  std::memcpy(bytes.data(), samples.data(), bytes.size());
  return bytes;
}

TEST(EqualRateConversion, StereoIsAveragedWithoutDelay) {
  ToTarget converter(recordingTargetFormat(), nullptr, makeSoxrConverter);
  std::vector<int16_t> stereo;
  for (int i = 0; i < 4096; ++i) {
    stereo.push_back(int16_t(i));
    stereo.push_back(int16_t(-i / 2));
  }
  const auto bytes = bytesOf(stereo);
  const auto out = converter.convert(PcmBuffer{{SampleType::s16, 48000, 2}, bytes});
  ASSERT_TRUE(out.has_value());
  ASSERT_EQ(out->size(), 4096u) << "every frame comes out in the same call";
  for (int i = 0; i < 4096; ++i) {
    const double average = (i + (-i / 2)) / 2.0;
    EXPECT_LE(std::abs((*out)[size_t(i)] - average), 0.5) << i;
  }
}

TEST(EqualRateConversion, FloatBeyondFullScaleIsClippedAndNaNIsSilence) {
  ToTarget converter(recordingTargetFormat(), nullptr, makeSoxrConverter);
  const std::vector<float> samples{2.0f, -2.0f, 0.5f, std::nanf("")};
  std::vector<std::byte> bytes(samples.size() * 4);
  std::memcpy(bytes.data(), samples.data(), bytes.size());
  const auto out = converter.convert(PcmBuffer{{SampleType::float32, 48000, 1}, bytes});
  ASSERT_TRUE(out.has_value());
  EXPECT_EQ(*out, (Samples{32767, -32768, 16384, 0}));
}

TEST(EqualRateConversion, OutputThatDoesNotFitWaitsForTheNextCall) {
  auto converter = makeSoxrConverter({SampleType::s16, 48000, 1}, recordingTargetFormat());
  ASSERT_TRUE(converter);
  const std::vector<int16_t> samples(100, 7);
  const auto bytes = bytesOf(samples);
  const PcmBuffer buffer{{SampleType::s16, 48000, 1}, bytes};
  bool handed = false;
  const InputBlock once = [&](uint32_t, InputStatus& status) -> const PcmBuffer* {
    if (handed) {
      status = InputStatus::noDataNow;
      return nullptr;
    }
    handed = true;
    status = InputStatus::haveData;
    return &buffer;
  };
  OutputBuffer first{60, {}};
  EXPECT_FALSE(converter->convert(first, once).has_value());
  EXPECT_EQ(first.samples.size(), 60u);
  OutputBuffer second{60, {}};
  EXPECT_FALSE(converter->convert(second, once).has_value());
  EXPECT_EQ(second.samples, Samples(40, 7));
}

TEST(EqualRateConversion, RoundsToNearestEvenAndClipsInBlocksAndTails) {
  // Halves of a 16-bit step (ties), values between, and values past full scale, in a count
  // that is not a multiple of any vector width.
  std::vector<float> samples;
  for (int k = -66001; k <= 66001; ++k) samples.push_back(float(k) / 65536.0f);
  std::vector<std::byte> bytes(samples.size() * 4);
  std::memcpy(bytes.data(), samples.data(), bytes.size());
  auto converter = makeSoxrConverter({SampleType::float32, 48000, 1}, recordingTargetFormat());
  ASSERT_TRUE(converter);
  const PcmBuffer buffer{{SampleType::float32, 48000, 1}, bytes};
  bool handed = false;
  const InputBlock once = [&](uint32_t, InputStatus& status) -> const PcmBuffer* {
    status = handed ? InputStatus::noDataNow : InputStatus::haveData;
    if (handed) return nullptr;
    handed = true;
    return &buffer;
  };
  OutputBuffer out{uint32_t(samples.size()), {}};
  EXPECT_FALSE(converter->convert(out, once).has_value());
  ASSERT_EQ(out.samples.size(), samples.size());
  for (size_t i = 0; i < samples.size(); ++i) {
    const long expected = std::clamp(std::lrint(samples[i] * 32768.0f), -32768L, 32767L);
    ASSERT_EQ(out.samples[i], expected) << samples[i];
  }
}

}  // namespace
