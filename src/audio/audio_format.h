// The PCM layouts the sound server delivers, and the recorder's target format.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tallowbrook {

// Interleaved sample types, in native (little-endian) byte order.
enum class SampleType { s16, s32, float32 };

// A PCM layout: sample type, frames per second, interleaved channels. Two formats with equal
// fields are the same format (a converter built for one serves the other).
struct AudioFormat {
  SampleType type = SampleType::s16;
  double sampleRate = 0;
  uint32_t channels = 0;

  friend bool operator==(const AudioFormat&, const AudioFormat&) = default;
};

// Bytes of one sample of `type`.
constexpr size_t bytesPerSample(SampleType type) {
  return type == SampleType::s16 ? 2 : 4;
}

// The recording format: signed 16-bit, 48000 Hz, 1 channel.
constexpr AudioFormat recordingTargetFormat() {
  return {SampleType::s16, 48000.0, 1};
}

// One buffer as a source delivers it: interleaved frames of `format` in `bytes` (borrowed;
// valid for the call it is passed to). A trailing partial frame is ignored.
struct PcmBuffer {
  AudioFormat format;
  std::span<const std::byte> bytes;

  uint64_t frameLength() const {
    const size_t frameBytes = bytesPerSample(format.type) * format.channels;
    return frameBytes == 0 ? 0 : bytes.size() / frameBytes;
  }
};

}  // namespace tallowbrook
