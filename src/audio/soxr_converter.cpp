#include "audio/soxr_converter.h"

#include <soxr.h>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <algorithm>
#include <cmath>
#include <cstring>
#include <mutex>
#include <vector>

namespace tallowbrook {
namespace {

bool rateSupported(double rate) {
  return rate >= kMinConvertedRate && rate <= kMaxConvertedRate;  // false for NaN
}

// Reads sample `i` of an interleaved block (the bytes need not be aligned).
template <typename T>
T sampleAt(const std::byte* data, size_t i) {
  T s;
  std::memcpy(&s, data + i * sizeof s, sizeof s);
  return s;
}

// Averages the `Channels` channels (0: `channels` at run time) of each of `frames` frames of
// integer samples into `mono`, `scale` being 1 / (channels * full scale). Mono and stereo get
// their own loops, which the compiler vectorises.
template <typename T, size_t Channels>
void foldIntegers(const std::byte* data, size_t frames, size_t channels, double scale,
                  float* mono) {
  const size_t n = Channels ? Channels : channels;
  for (size_t f = 0; f < frames; ++f) {
    int64_t sum = 0;
    for (size_t c = 0; c < n; ++c) sum += sampleAt<T>(data, f * n + c);
    mono[f] = static_cast<float>(static_cast<double>(sum) * scale);
  }
}

template <size_t Channels>
void foldFloats(const std::byte* data, size_t frames, size_t channels, float perChannel,
                float* mono) {
  const size_t n = Channels ? Channels : channels;
  for (size_t f = 0; f < frames; ++f) {
    float sum = 0;
    for (size_t c = 0; c < n; ++c) sum += sampleAt<float>(data, f * n + c);
    float m = sum * perChannel;
    // The resampler's integer output is undefined for NaN and infinities.
    if (!std::isfinite(m)) m = std::isnan(m) ? 0.0f : (m > 0 ? 1.0f : -1.0f);
    mono[f] = m;
  }
}

template <typename T>
void foldIntegersAnyChannels(const std::byte* data, size_t frames, size_t channels,
                             double fullScale, float* mono) {
  const double scale = 1.0 / (static_cast<double>(channels) * fullScale);
  if (channels == 1) return foldIntegers<T, 1>(data, frames, channels, scale, mono);
  if (channels == 2) return foldIntegers<T, 2>(data, frames, channels, scale, mono);
  foldIntegers<T, 0>(data, frames, channels, scale, mono);
}

// Averages the channels of each frame of `buffer` into `mono` (full scale = 1.0).
void foldToMono(const PcmBuffer& buffer, std::vector<float>& mono) {
  const size_t frames = static_cast<size_t>(buffer.frameLength());
  const size_t channels = buffer.format.channels;
  mono.resize(frames);
  const std::byte* data = buffer.bytes.data();
  switch (buffer.format.type) {
    case SampleType::s16:
      foldIntegersAnyChannels<int16_t>(data, frames, channels, 32768.0, mono.data());
      break;
    case SampleType::s32:
      foldIntegersAnyChannels<int32_t>(data, frames, channels, 2147483648.0, mono.data());
      break;
    case SampleType::float32: {
      const float perChannel = 1.0f / static_cast<float>(channels);
      if (channels == 1) {
        foldFloats<1>(data, frames, channels, perChannel, mono.data());
      } else if (channels == 2) {
        foldFloats<2>(data, frames, channels, perChannel, mono.data());
      } else {
        foldFloats<0>(data, frames, channels, perChannel, mono.data());
      }
      break;
    }
  }
}

// Full-scale float samples to 16-bit: scaled by 32768, clipped, rounded to nearest (ties to
// even, as lrint does in the default rounding mode). Four at a time with SSE2, whose
// conversion rounds the same way; the clip comes first, so no value leaves the int32 range.
void toInt16(const float* in, size_t count, int16_t* out) {
  size_t i = 0;
#ifdef __SSE2__
  const __m128 scale = _mm_set1_ps(32768.0f);
  const __m128 high = _mm_set1_ps(32767.0f);
  const __m128 low = _mm_set1_ps(-32768.0f);
  for (; i + 8 <= count; i += 8) {
    const __m128 a = _mm_max_ps(_mm_min_ps(_mm_mul_ps(_mm_loadu_ps(in + i), scale), high), low);
    const __m128 b = _mm_max_ps(_mm_min_ps(_mm_mul_ps(_mm_loadu_ps(in + i + 4), scale), high), low);
    const __m128i packed = _mm_packs_epi32(_mm_cvtps_epi32(a), _mm_cvtps_epi32(b));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), packed);
  }
#endif
  for (; i < count; ++i) {
    const long rounded = std::lrint(in[i] * 32768.0f);
    out[i] = static_cast<int16_t>(rounded > 32767 ? 32767 : rounded < -32768 ? -32768 : rounded);
  }
}

class SoxrConverter final : public PlatformConverter {
 public:
  explicit SoxrConverter(soxr_t soxr) : soxr_(soxr) {}
  ~SoxrConverter() override { soxr_delete(soxr_); }
  SoxrConverter(const SoxrConverter&) = delete;
  SoxrConverter& operator=(const SoxrConverter&) = delete;

  std::optional<std::string> convert(OutputBuffer& output, const InputBlock& input) override {
    std::lock_guard<std::mutex> held(lock_);
    output.samples.reserve(output.frameCapacity);
    for (;;) {
      if (ending_) return flush(output);
      if (auto error = feedPending(output)) return error;
      if (!pending_.empty()) return std::nullopt;  // no room left: the rest waits

      InputStatus status = InputStatus::noDataNow;
      const PcmBuffer* buffer = input(space(output), status);
      if (status == InputStatus::endOfStream) {
        ending_ = true;
        continue;
      }
      if (status != InputStatus::haveData || buffer == nullptr) return drainReady(output);
      foldToMono(*buffer, pending_);
      pendingFrom_ = 0;
    }
  }

 private:
  static size_t space(const OutputBuffer& output) {
    return output.frameCapacity > output.samples.size()
               ? output.frameCapacity - output.samples.size()
               : 0;
  }

  // One run of the resampler over `length` frames at `in` (null: end of input) into the free
  // space of `output`.
  struct Step {
    size_t used = 0;      // input frames taken
    size_t produced = 0;  // output frames made
    soxr_error_t error = nullptr;
  };
  Step step(const float* in, size_t length, OutputBuffer& output) {
    Step result;
    const size_t before = output.samples.size();
    const size_t room = space(output);
    output.samples.resize(before + room);
    result.error = soxr_process(soxr_, in, length, in ? &result.used : nullptr,
                                output.samples.data() + before, room, &result.produced);
    output.samples.resize(before + result.produced);
    return result;
  }

  // Resamples the folded input not yet taken into the free space of `output`.
  std::optional<std::string> feedPending(OutputBuffer& output) {
    while (pendingFrom_ < pending_.size() && space(output) > 0) {
      const Step done =
          step(pending_.data() + pendingFrom_, pending_.size() - pendingFrom_, output);
      if (done.error) return std::string(done.error);
      pendingFrom_ += done.used;
      if (done.used == 0 && done.produced == 0) break;  // nothing moves: wait for the next call
    }
    if (pendingFrom_ == pending_.size()) {
      pending_.clear();
      pendingFrom_ = 0;
    }
    return std::nullopt;
  }

  // Collects what the resampler has ready from input it already took, without ending the
  // stream.
  std::optional<std::string> drainReady(OutputBuffer& output) {
    static const float kNoInput = 0;
    while (space(output) > 0) {
      const Step done = step(&kNoInput, 0, output);
      if (done.error) return std::string(done.error);
      if (done.produced == 0) break;
    }
    return std::nullopt;
  }

  // Drains what the resampler still holds; once it is empty, starts a fresh stream. What
  // does not fit goes out at the next call.
  std::optional<std::string> flush(OutputBuffer& output) {
    for (;;) {
      if (space(output) == 0) return std::nullopt;
      const Step done = step(nullptr, 0, output);
      if (done.error) return std::string(done.error);
      if (done.produced == 0) break;
    }
    soxr_clear(soxr_);
    ending_ = false;
    pending_.clear();
    pendingFrom_ = 0;
    return std::nullopt;
  }

  std::mutex lock_;  // serialises calls; guards everything below
  soxr_t soxr_;
  // Folded input from pendingFrom_ on that the resampler has not taken yet (its output had no
  // room); empty otherwise.
  std::vector<float> pending_;
  size_t pendingFrom_ = 0;
  bool ending_ = false;  // end of stream seen, flush not finished
};

// Equal rates: nothing to resample, so only the channels are folded and the samples turned
// into 16-bit (rounded to nearest, clipped), one buffer at a time, with no delay. Keeps what
// did not fit into the output for the next call.
class FoldConverter final : public PlatformConverter {
 public:
  std::optional<std::string> convert(OutputBuffer& output, const InputBlock& input) override {
    std::lock_guard<std::mutex> held(lock_);
    output.samples.reserve(output.frameCapacity);
    for (;;) {
      if (pendingFrom_ < pending_.size() && output.samples.size() < output.frameCapacity) {
        const size_t count =
            std::min(pending_.size() - pendingFrom_, output.frameCapacity - output.samples.size());
        const size_t before = output.samples.size();
        output.samples.resize(before + count);
        toInt16(pending_.data() + pendingFrom_, count, output.samples.data() + before);
        pendingFrom_ += count;
      }
      if (pendingFrom_ < pending_.size()) return std::nullopt;  // no room left: the rest waits
      pending_.clear();
      pendingFrom_ = 0;
      InputStatus status = InputStatus::noDataNow;
      const size_t room = output.frameCapacity > output.samples.size()
                              ? output.frameCapacity - output.samples.size()
                              : 0;
      const PcmBuffer* buffer = input(static_cast<uint32_t>(room), status);
      if (status != InputStatus::haveData || buffer == nullptr) return std::nullopt;
      foldToMono(*buffer, pending_);
    }
  }

 private:
  std::mutex lock_;             // serialises calls; guards everything below
  std::vector<float> pending_;  // folded input from pendingFrom_ on not yet handed out
  size_t pendingFrom_ = 0;
};

}  // namespace

std::shared_ptr<PlatformConverter> makeSoxrConverter(const AudioFormat& from,
                                                     const AudioFormat& to) {
  if (from.channels < 1 || from.channels > kMaxConvertedChannels || !rateSupported(from.sampleRate))
    return nullptr;
  if (from.type != SampleType::s16 && from.type != SampleType::s32 &&
      from.type != SampleType::float32) {
    return nullptr;
  }
  if (to.type != SampleType::s16 || to.channels != 1 || !rateSupported(to.sampleRate)) {
    return nullptr;
  }
  if (from.sampleRate == to.sampleRate) return std::make_shared<FoldConverter>();
  soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_INT16_I);
  io.flags |= SOXR_NO_DITHER;  // dither is random: the same input must give the same file
  const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
  const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
  soxr_error_t error = nullptr;
  soxr_t soxr = soxr_create(from.sampleRate, to.sampleRate, 1, &error, &io, &quality, &runtime);
  if (error || soxr == nullptr) {
    if (soxr) soxr_delete(soxr);
    return nullptr;
  }
  return std::make_shared<SoxrConverter>(soxr);
}

}  // namespace tallowbrook
