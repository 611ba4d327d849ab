// The Linux platform converter: channels averaged to mono, then libsoxr.
#pragma once

#include <cstdint>
#include <memory>

#include "audio/platform_converter.h"

namespace tallowbrook {

// Sample rates the converter is built for, in Hz (everything a sound server delivers).
inline constexpr double kMinConvertedRate = 1000;
inline constexpr double kMaxConvertedRate = 768000;
// Channels per input frame (sound servers deliver at most 32).
inline constexpr uint32_t kMaxConvertedChannels = 1024;

// A converter from `from` (s16, s32 or float32, 1 to kMaxConvertedChannels channels, a rate in
// [kMinConvertedRate, kMaxConvertedRate]) to `to` (s16 mono, a rate within the same range).
// Channels are averaged to one; float input is taken as it stands (NaN as silence, beyond
// full scale clipped at the output). Then one libsoxr resampler (high quality, no dither, so
// runs are reproducible, one thread) does the rate and the conversion to 16 bits; at equal
// rates there is nothing to resample and the folded samples are rounded to 16 bits directly
// (no filter, no delay). Returns null for any other pair of formats or when libsoxr refuses.
// Any thread.
std::shared_ptr<PlatformConverter> makeSoxrConverter(const AudioFormat& from,
                                                     const AudioFormat& to);

}  // namespace tallowbrook
