#include "speech/mono16.h"

#include <cmath>
#include <cstring>

namespace tallowbrook::Speak {

std::optional<Samples> mono16(const AudioBuffer& buffer) {
  if (buffer.format != SampleFormat::float32 && buffer.format != SampleFormat::int16) {
    return std::nullopt;
  }
  if (buffer.frames <= 0 || buffer.channels <= 0 || buffer.data == nullptr) return Samples{};
  Samples samples(static_cast<size_t>(buffer.frames));
  const size_t stride = static_cast<size_t>(buffer.channels);
  if (buffer.format == SampleFormat::int16) {
    const auto* in = static_cast<const int16_t*>(buffer.data);
    if (stride == 1) {
      std::memcpy(samples.data(), in, samples.size() * sizeof(int16_t));
      return samples;
    }
    for (size_t i = 0; i < samples.size(); ++i) samples[i] = in[i * stride];
  } else {
    const auto* in = static_cast<const float*>(buffer.data);
    for (size_t i = 0; i < samples.size(); ++i) {
      float x = in[i * stride];
      if (std::isnan(x)) {
        samples[i] = 32767;
        continue;
      }
      x = x < -1.0f ? -1.0f : (x > 1.0f ? 1.0f : x);
      samples[i] = static_cast<int16_t>(std::trunc(x * 32767.0f));
    }
  }
  return samples;
}

}  // namespace tallowbrook::Speak
