// Samples: the recorder's unit of audio.
#pragma once

#include <cstdint>
#include <vector>

namespace tallowbrook {

// Signed 16-bit PCM samples in native (little-endian) order. In the recorder always mono at
// 48000 Hz; the speech renderer's are mono at the synthesiser's rate.
using Samples = std::vector<int16_t>;

}  // namespace tallowbrook
