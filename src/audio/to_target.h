// ToTarget: one source's converter into the recording format.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "audio/audio_format.h"
#include "audio/platform_converter.h"
#include "audio/samples.h"

namespace tallowbrook {

// Output frames made room for when converting `frameLength` frames from `sourceRate` to
// `targetRate`: targetRate / sourceRate x frameLength, truncated to an unsigned 32-bit count,
// plus a fixed margin of 1024 (4096 frames at 44100 Hz to 48000 Hz: 5482). A count that is
// not finite, is -1 or less, 2^32 or more, or overflows when the margin is added is a
// programming error and aborts. Pure.
uint32_t outputCapacity(double targetRate, double sourceRate, uint64_t frameLength);

// Turns each buffer of one source, in whatever format it arrives, into one block of 16-bit
// mono samples at the target rate. Builds its platform converter at the first non-empty
// buffer and again whenever the buffer format changes, reporting a change of sample rate
// through `onRateChange`, so a device switch mid-recording still yields one continuous
// stream. The platform converter keeps its resampling state from one buffer to the next and
// is never told that the stream ended.
//
// One per source. `convert` is called on the source's delivery thread but is safe from any
// thread: `lock_` guards `converter_` and `sourceFormat_` and is held only while the format is
// checked and the converter swapped (and around `onRateChange`); the conversion runs unlocked
// on its own reference to the converter.
class ToTarget {
 public:
  // Told (old rate, new rate) in Hz when the source's sample rate changes. Runs on the
  // converting thread with this converter's lock held: it must not call back into it.
  using OnRateChange = std::function<void(double oldRate, double newRate)>;

  // `target` must be 16-bit mono with a rate the factory accepts (anything else is a
  // programming error and aborts). `factory` builds the platform converter.
  ToTarget(AudioFormat target, OnRateChange onRateChange, ConverterFactory factory);

  // The samples converted from `buffer`, or nothing when there is nothing to deliver: an
  // empty buffer (which leaves all state alone and takes no lock), a format the platform
  // cannot convert (not retried until the format changes), an empty output, or a conversion
  // error, which also prints one "record-warning" line ("audio conversion failed: <reason>")
  // under `Out::lock()`. Must not be called with `Out::lock()` held.
  std::optional<Samples> convert(const PcmBuffer& buffer);

 private:
  std::mutex lock_;
  const AudioFormat target_;
  std::shared_ptr<PlatformConverter> converter_;  // guarded by lock_; null: none could be built
  std::optional<AudioFormat> sourceFormat_;       // guarded by lock_; unset before first buffer
  const OnRateChange onRateChange_;
  const ConverterFactory factory_;
};

}  // namespace tallowbrook
