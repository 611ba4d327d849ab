// The platform's sample-rate and format converter, behind an interface so that tests can
// replace it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "audio/audio_format.h"
#include "audio/samples.h"

namespace tallowbrook {

// What an input block answers when a converter asks for more input.
enum class InputStatus {
  haveData = 0,    // here is a buffer
  noDataNow = 1,   // nothing more for this call; more may come on a later call
  endOfStream = 2  // nothing more ever: flush what the converter still holds
};

// Asked by a converter for input: receives the number of frames it would like (a hint) and a
// place for the status; returns a buffer with haveData, or null with another status.
using InputBlock = std::function<const PcmBuffer*(uint32_t framesWanted, InputStatus& status)>;

// Converted 16-bit mono samples; a converter appends at most `frameCapacity` of them.
struct OutputBuffer {
  uint32_t frameCapacity = 0;
  Samples samples;  // frameLength = samples.size()
};

// Converts one source format to the target format, keeping its state (filter history,
// fractional position) from one call to the next. Implementations accept calls from any
// thread and serialise them with a lock of their own, which may be held while the input block
// runs (so a block must not take locks that a caller holds around `convert`).
class PlatformConverter {
 public:
  virtual ~PlatformConverter() = default;

  // Pulls input from `input` until it answers noDataNow or endOfStream, or `output` is full
  // (input not yet converted is kept for the next call). Returns the error's description
  // when the conversion fails, nothing otherwise.
  virtual std::optional<std::string> convert(OutputBuffer& output, const InputBlock& input) = 0;
};

// Builds a converter from `from` to `to`; null when the platform cannot convert between them.
using ConverterFactory = std::function<std::shared_ptr<PlatformConverter>(const AudioFormat& from,
                                                                          const AudioFormat& to)>;

}  // namespace tallowbrook
