// Turning a synthesiser buffer into the WAV writer's samples.
#pragma once

#include <optional>

#include "audio/samples.h"
#include "speech/speech_engine.h"

namespace tallowbrook::Speak {

// One signed 16-bit sample per frame of `buffer`, from its first channel only (other channels
// are dropped, not mixed). Float samples are clamped to -1...1, scaled by 32767 and truncated
// toward zero (NaN becomes 32767); 16-bit samples are copied. A zero-frame buffer gives an
// empty list; any other sample format gives nothing. Pure; any thread.
std::optional<Samples> mono16(const AudioBuffer& buffer);

}  // namespace tallowbrook::Speak
