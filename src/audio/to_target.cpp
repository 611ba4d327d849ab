#include "audio/to_target.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <new>
#include <string>
#include <utility>

#include "base/out.h"

namespace tallowbrook {

uint32_t outputCapacity(double targetRate, double sourceRate, uint64_t frameLength) {
  const double frames = targetRate / sourceRate * static_cast<double>(frameLength);
  if (!std::isfinite(frames) || frames <= -1 || frames >= 4294967296.0) std::abort();
  const auto whole = static_cast<uint32_t>(frames);  // toward zero
  if (whole > UINT32_MAX - 1024) std::abort();
  return whole + 1024;
}

ToTarget::ToTarget(AudioFormat target, OnRateChange onRateChange, ConverterFactory factory)
    : target_(target), onRateChange_(std::move(onRateChange)), factory_(std::move(factory)) {
  if (target_.type != SampleType::s16 || target_.channels != 1 || !(target_.sampleRate > 0) ||
      !std::isfinite(target_.sampleRate)) {
    std::abort();
  }
}

std::optional<Samples> ToTarget::convert(const PcmBuffer& buffer) {
  const uint64_t frameLength = buffer.frameLength();
  if (frameLength == 0) return std::nullopt;
  const AudioFormat& format = buffer.format;

  std::shared_ptr<PlatformConverter> converter;
  {
    std::lock_guard<std::mutex> held(lock_);
    if (!sourceFormat_ || *sourceFormat_ != format) {
      if (sourceFormat_ && sourceFormat_->sampleRate != format.sampleRate && onRateChange_) {
        onRateChange_(sourceFormat_->sampleRate, format.sampleRate);
      }
      // Stored even when no converter can be built, so the build is not retried per buffer.
      converter_ = factory_ ? factory_(format, target_) : nullptr;
      sourceFormat_ = format;
    }
    converter = converter_;
  }
  if (!converter) return std::nullopt;

  OutputBuffer output;
  output.frameCapacity = outputCapacity(target_.sampleRate, format.sampleRate, frameLength);
  try {
    output.samples.reserve(output.frameCapacity);
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }

  // The buffer is handed over once per call; asked again, the input says "nothing now" (never
  // "end of stream"), so the converter keeps its state for the next buffer.
  bool handed = false;
  const InputBlock input = [&buffer, &handed](uint32_t, InputStatus& status) -> const PcmBuffer* {
    if (!handed) {
      handed = true;
      status = InputStatus::haveData;
      return &buffer;
    }
    status = InputStatus::noDataNow;
    return nullptr;
  };
  if (auto error = converter->convert(output, input)) {
    writeJsonLine(
        Json{{"type", "record-warning"}, {"message", "audio conversion failed: " + *error}});
    return std::nullopt;
  }

  const size_t frames = std::min<size_t>(output.samples.size(), output.frameCapacity);
  if (frames == 0) return std::nullopt;
  return Samples(output.samples.begin(), output.samples.begin() + static_cast<ptrdiff_t>(frames));
}

}  // namespace tallowbrook
