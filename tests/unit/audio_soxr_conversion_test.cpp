// The real converter (channels folded, then libsoxr) through ToTarget and on its own.
#include <cmath>
#include <complex>
#include <cstring>
#include <numbers>
#include <vector>

#include <gtest/gtest.h>

#include "audio/soxr_converter.h"
#include "audio/to_target.h"
#include "stdout_capture.h"

namespace tallowbrook {
namespace {

// Interleaved frames of one format, built sample by sample.
struct Signal {
  AudioFormat format;
  std::vector<std::byte> bytes;

  template <typename T>
  void put(T value) {
    const auto* p = reinterpret_cast<const std::byte*>(&value);
    bytes.insert(bytes.end(), p, p + sizeof value);
  }
  size_t frames() const { return bytes.size() / (bytesPerSample(format.type) * format.channels); }
  PcmBuffer slice(size_t fromFrame, size_t frameCount) const {
    const size_t frameBytes = bytesPerSample(format.type) * format.channels;
    return PcmBuffer{format,
                     std::span(bytes).subspan(fromFrame * frameBytes, frameCount * frameBytes)};
  }
};

// `frames` frames of a sine of `hz` in every channel, amplitude `amplitude` of full scale.
Signal sine(AudioFormat format, size_t frames, double hz, double amplitude = 0.5,
            size_t phaseFrom = 0) {
  Signal s{format, {}};
  for (size_t f = 0; f < frames; ++f) {
    const double v =
        amplitude * std::sin(2 * std::numbers::pi * hz * double(f + phaseFrom) / format.sampleRate);
    for (uint32_t c = 0; c < format.channels; ++c) {
      switch (format.type) {
        case SampleType::float32:
          s.put(float(v));
          break;
        case SampleType::s16:
          s.put(int16_t(std::lround(v * 32767)));
          break;
        case SampleType::s32:
          s.put(int32_t(std::llround(v * 2147483647.0)));
          break;
      }
    }
  }
  return s;
}

// Feeds `signal` to `converter` in buffers of `chunk` frames; returns everything it delivered.
Samples convertAll(ToTarget& converter, const Signal& signal, size_t chunk) {
  Samples out;
  for (size_t at = 0; at < signal.frames(); at += chunk) {
    auto block = converter.convert(signal.slice(at, std::min(chunk, signal.frames() - at)));
    if (block) out.insert(out.end(), block->begin(), block->end());
  }
  return out;
}

// `x` under a Hann window.
std::vector<double> hann(const Samples& x) {
  std::vector<double> out(x.size());
  const double n = double(x.size());
  for (size_t i = 0; i < x.size(); ++i) {
    out[i] = double(x[i]) * (0.5 - 0.5 * std::cos(2 * std::numbers::pi * double(i) / (n - 1)));
  }
  return out;
}

// The magnitude of the windowed signal `w` at `hz` (sampled at `rate`).
double magnitudeAt(const std::vector<double>& w, double hz, double rate) {
  std::complex<double> sum = 0;
  const std::complex<double> step = std::polar(1.0, -2 * std::numbers::pi * hz / rate);
  std::complex<double> turn = 1;
  for (size_t i = 0; i < w.size(); ++i) {
    sum += w[i] * turn;
    turn *= step;
    if (i % 1024 == 1023) turn /= std::abs(turn);  // keep the rotation on the unit circle
  }
  return std::abs(sum);
}

// The frequency of the strongest component of `x`, to about 0.01 Hz: the strongest bin of a
// 4096-point transform of its start, then finer and finer steps over the whole signal.
double dominantFrequency(const Samples& x, double rate) {
  const std::vector<double> start = hann(Samples(x.begin(), x.begin() + 4096));
  const double binWidth = rate / 4096;
  double best = binWidth, bestMagnitude = -1;
  for (int bin = 1; bin < 2048; ++bin) {
    const double m = magnitudeAt(start, bin * binWidth, rate);
    if (m > bestMagnitude) best = bin * binWidth, bestMagnitude = m;
  }
  const std::vector<double> all = hann(x);
  for (double step : {0.25, 0.01}) {
    const double center = best;
    const double reach = step == 0.25 ? binWidth : 0.25;
    bestMagnitude = -1;
    for (double f = center - reach; f <= center + reach; f += step) {
      const double m = magnitudeAt(all, f, rate);
      if (m > bestMagnitude) best = f, bestMagnitude = m;
    }
  }
  return best;
}

double rms(const Samples& x, size_t from = 0) {
  double sum = 0;
  for (size_t i = from; i < x.size(); ++i) sum += double(x[i]) * x[i];
  return std::sqrt(sum / double(x.size() - from));
}

// How many output frames the resampler still holds after `signal` went in through
// `chunk`-frame calls: what an end-of-stream flush delivers.
size_t heldBack(const Signal& signal, size_t chunk) {
  auto converter = makeSoxrConverter(signal.format, recordingTargetFormat());
  for (size_t at = 0; at < signal.frames(); at += chunk) {
    PcmBuffer buffer = signal.slice(at, std::min(chunk, signal.frames() - at));
    OutputBuffer output{outputCapacity(48000, signal.format.sampleRate, buffer.frameLength()), {}};
    bool handed = false;
    converter->convert(output, [&](uint32_t, InputStatus& status) -> const PcmBuffer* {
      status = handed ? InputStatus::noDataNow : InputStatus::haveData;
      return handed ? nullptr : (handed = true, &buffer);
    });
  }
  OutputBuffer tail{1 << 20, {}};
  converter->convert(tail, [](uint32_t, InputStatus& status) -> const PcmBuffer* {
    status = InputStatus::endOfStream;
    return nullptr;
  });
  return tail.samples.size();
}

constexpr AudioFormat kStereoFloat44{SampleType::float32, 44100, 2};

TEST(SoxrConversion, AOneKilohertzSineComesOutAtFortyEightKilohertz) {
  const Signal in = sine(kStereoFloat44, 4096 * 22, 1000);  // about 2 s
  int rateChanges = 0;
  ToTarget converter(
      recordingTargetFormat(), [&](double, double) { ++rateChanges; }, makeSoxrConverter);
  const Samples out = convertAll(converter, in, 4096);
  EXPECT_EQ(rateChanges, 0);

  // The length is the input's at the new rate, less what the resampler still holds.
  const double exact = double(in.frames()) * 48000 / 44100;
  const size_t delay = heldBack(in, 4096);
  EXPECT_GT(delay, 0u);
  EXPECT_LT(delay, 4800u);  // under 0.1 s
  EXPECT_NEAR(double(out.size()), exact - double(delay), 2.0);

  // After the filter's start-up, a clean 1 kHz tone at the same level (0.5 of full scale).
  const Samples steady(out.begin() + 2000, out.end());
  EXPECT_NEAR(dominantFrequency(steady, 48000), 1000.0, 1.0);
  EXPECT_NEAR(rms(steady), 0.5 * 32767 / std::sqrt(2.0), 0.5 * 32767 * 0.01);
  // Nearly all of its energy is in that tone: the tone's amplitude (the windowed transform at
  // 1000 Hz over half the window's length) is the level that went in.
  const double tone = 2 * magnitudeAt(hann(steady), 1000, 48000) / (0.5 * double(steady.size()));
  EXPECT_NEAR(tone, 0.5 * 32767, 0.5 * 32767 * 0.01);
}

TEST(SoxrConversion, ARateChangeMidStreamIsReportedOnceAndTheStreamGoesOn) {
  std::vector<std::pair<double, double>> changes;
  ToTarget converter(
      recordingTargetFormat(), [&](double from, double to) { changes.emplace_back(from, to); },
      makeSoxrConverter);
  const Signal first = sine(kStereoFloat44, 4096 * 5, 1000);
  const Signal second = sine(AudioFormat{SampleType::s16, 48000, 1}, 4800 * 5, 1000);
  const Samples a = convertAll(converter, first, 4096);
  EXPECT_TRUE(changes.empty());
  const Samples b = convertAll(converter, second, 4800);
  ASSERT_EQ(changes.size(), 1u);
  EXPECT_EQ(changes[0], std::make_pair(44100.0, 48000.0));
  EXPECT_NEAR(double(a.size()), 4096 * 5 * 48000.0 / 44100, 4800);
  EXPECT_LE(b.size(), 4800u * 5);
  EXPECT_GT(b.size(), 4800u * 4);
  const Samples steady(b.begin() + 2000, b.end());
  EXPECT_NEAR(dominantFrequency(steady, 48000), 1000.0, 1.0);
}

TEST(SoxrConversion, InputAlreadyInTheTargetFormatComesBackIntact) {
  const Signal in = sine(AudioFormat{SampleType::s16, 48000, 1}, 48000, 440);
  ToTarget converter(recordingTargetFormat(), nullptr, makeSoxrConverter);
  const Samples out = convertAll(converter, in, 4096);
  // The resampler aligns its output with its input and holds a few samples back at the end.
  ASSERT_LE(out.size(), in.frames());
  ASSERT_GT(out.size(), in.frames() - 100);
  int worst = 0;
  for (size_t i = 0; i < out.size(); ++i) {
    int16_t original;
    std::memcpy(&original, in.bytes.data() + 2 * i, 2);
    worst = std::max(worst, std::abs(out[i] - original));
  }
  EXPECT_LE(worst, 1);
}

TEST(SoxrConversion, ChannelsAreAveragedToMono) {
  // Left = a tone, right = the same tone inverted: they cancel.
  Signal opposite{kStereoFloat44, {}};
  const Signal tone = sine(AudioFormat{SampleType::float32, 44100, 1}, 44100, 1000);
  for (size_t f = 0; f < tone.frames(); ++f) {
    float v;
    std::memcpy(&v, tone.bytes.data() + 4 * f, 4);
    opposite.put(v);
    opposite.put(-v);
  }
  ToTarget cancelling(recordingTargetFormat(), nullptr, makeSoxrConverter);
  const Samples silent = convertAll(cancelling, opposite, 4096);
  ASSERT_GT(silent.size(), 40000u);
  EXPECT_LE(rms(silent), 1.0);

  // Six identical channels of s32 are as loud as one.
  ToTarget six(recordingTargetFormat(), nullptr, makeSoxrConverter);
  const Samples loud =
      convertAll(six, sine(AudioFormat{SampleType::s32, 44100, 6}, 44100, 1000), 4096);
  ASSERT_GT(loud.size(), 40000u);
  EXPECT_NEAR(rms(loud, 2000), 0.5 * 32767 / std::sqrt(2.0), 0.5 * 32767 * 0.01);
}

TEST(SoxrConversion, EverySampleTypeGivesTheSameTone) {
  Samples reference;
  for (SampleType type : {SampleType::s16, SampleType::s32, SampleType::float32}) {
    ToTarget converter(recordingTargetFormat(), nullptr, makeSoxrConverter);
    const Samples out = convertAll(converter, sine(AudioFormat{type, 32000, 2}, 32000, 700), 1024);
    ASSERT_GT(out.size(), 40000u);
    if (reference.empty()) {
      reference = out;
      continue;
    }
    ASSERT_EQ(out.size(), reference.size());
    int worst = 0;
    for (size_t i = 0; i < out.size(); ++i)
      worst = std::max(worst, std::abs(out[i] - reference[i]));
    EXPECT_LE(worst, 2);
  }
}

TEST(SoxrConversion, RunsAreBitForBitReproducible) {
  const Signal in = sine(kStereoFloat44, 44100, 1234.5, 0.9);
  ToTarget one(recordingTargetFormat(), nullptr, makeSoxrConverter);
  ToTarget two(recordingTargetFormat(), nullptr, makeSoxrConverter);
  EXPECT_EQ(convertAll(one, in, 4096), convertAll(two, in, 4096));
}

TEST(SoxrConversion, LoudAndBrokenFloatInputStaysInRange) {
  Signal wild{AudioFormat{SampleType::float32, 44100, 1}, {}};
  for (int i = 0; i < 44100; ++i) {
    switch (i % 4) {
      case 0:
        wild.put(3.0f);
        break;
      case 1:
        wild.put(-3.0f);
        break;
      case 2:
        wild.put(std::nanf(""));
        break;
      default:
        wild.put(-std::numeric_limits<float>::infinity());
        break;
    }
  }
  ToTarget converter(recordingTargetFormat(), nullptr, makeSoxrConverter);
  const Samples out = convertAll(converter, wild, 4096);
  EXPECT_GT(out.size(), 40000u);  // clipped at full scale, never undefined
}

TEST(SoxrConverter, RefusesFormatsItCannotConvert) {
  const AudioFormat target = recordingTargetFormat();
  EXPECT_TRUE(makeSoxrConverter(kStereoFloat44, target));
  EXPECT_FALSE(makeSoxrConverter(AudioFormat{SampleType::s16, 44100, 0}, target));
  EXPECT_FALSE(makeSoxrConverter(AudioFormat{SampleType::s16, 500, 1}, target));
  EXPECT_FALSE(makeSoxrConverter(AudioFormat{SampleType::s16, 2e6, 1}, target));
  EXPECT_FALSE(makeSoxrConverter(AudioFormat{SampleType::s16, std::nan(""), 1}, target));
  EXPECT_FALSE(makeSoxrConverter(AudioFormat{SampleType::s16, 44100, 5000}, target));
  EXPECT_FALSE(makeSoxrConverter(kStereoFloat44, AudioFormat{SampleType::s16, 48000, 2}));
  EXPECT_FALSE(makeSoxrConverter(kStereoFloat44, AudioFormat{SampleType::float32, 48000, 1}));
}

TEST(SoxrConversion, AnUnconvertibleRateGivesNothingAndNoWarning) {
  ToTarget converter(recordingTargetFormat(), nullptr, makeSoxrConverter);
  const Signal tooSlow = sine(AudioFormat{SampleType::s16, 200, 1}, 400, 10);
  StdoutCapture capture;
  EXPECT_TRUE(convertAll(converter, tooSlow, 100).empty());
  EXPECT_EQ(capture.text(), "");
}

TEST(SoxrConverter, KeepsInputThatDidNotFitForTheNextCall) {
  const Signal in = sine(kStereoFloat44, 4096, 1000);
  const PcmBuffer buffer = in.slice(0, 4096);
  auto whole = makeSoxrConverter(in.format, recordingTargetFormat());
  auto piecewise = makeSoxrConverter(in.format, recordingTargetFormat());

  OutputBuffer all{outputCapacity(48000, 44100, 4096), {}};
  bool handed = false;
  auto once = [&](uint32_t, InputStatus& status) -> const PcmBuffer* {
    status = handed ? InputStatus::noDataNow : InputStatus::haveData;
    return handed ? nullptr : (handed = true, &buffer);
  };
  ASSERT_FALSE(whole->convert(all, once));

  Samples pieces;
  handed = false;
  for (int call = 0; call < 100; ++call) {
    OutputBuffer small{256, {}};
    ASSERT_FALSE(piecewise->convert(small, once));
    EXPECT_LE(small.samples.size(), 256u);
    pieces.insert(pieces.end(), small.samples.begin(), small.samples.end());
  }
  EXPECT_EQ(pieces, all.samples);
}

TEST(SoxrConverter, EndOfStreamFlushesWhatTheResamplerHolds) {
  const Signal in = sine(kStereoFloat44, 44100, 1000);
  auto converter = makeSoxrConverter(in.format, recordingTargetFormat());
  const PcmBuffer buffer = in.slice(0, 44100);
  int asked = 0;
  OutputBuffer output{1 << 20, {}};
  ASSERT_FALSE(converter->convert(output, [&](uint32_t, InputStatus& status) -> const PcmBuffer* {
    ++asked;
    status = asked == 1 ? InputStatus::haveData : InputStatus::endOfStream;
    return asked == 1 ? &buffer : nullptr;
  }));
  EXPECT_NEAR(double(output.samples.size()), 48000.0, 1.0);
}

}  // namespace
}  // namespace tallowbrook
