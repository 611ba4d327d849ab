// Finds clicks in a recording of steady sine tones: every 10 ms window is demodulated at each
// tone's frequency, and a window whose phase moved against the window before it, or whose
// level fell below most windows', is a glitch. A padded or dropped stretch of even a few
// samples shows as a phase jump; a gap shows as a level drop. Pure; any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace record_cli {

struct ToneGlitch {
  size_t window;     // index of the 10 ms window (480 samples at 48000 Hz)
  double phaseJump;  // radians against the window before, in (-pi, pi]
  double level;      // the window's amplitude as a fraction of the median window's
};

// The glitches of the tone at `frequency` Hz in `samples` (mono, 48000 Hz), from `skipSeconds`
// on. A window glitches when its phase moved more than `maxPhase` radians from the previous
// window's (a steady tone keeps its phase) or its level is below `minLevel` of the median.
std::vector<ToneGlitch> toneGlitches(const std::vector<int16_t>& samples, double frequency,
                                     double skipSeconds, double maxPhase = 0.1,
                                     double minLevel = 0.9);

// One line per glitch, for failure messages and the hand-run tool.
std::string describe(const std::vector<ToneGlitch>& glitches, double frequency);

}  // namespace record_cli
