// The options of `speak render` and `speak preview`.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tallowbrook::Speak {

struct Options {
  std::optional<std::string> out;    // --out: the WAV file to write
  std::optional<std::string> voice;  // --voice: a voice identifier
  float rate = 0.5f;                 // --rate: the synthesiser's default speaking rate
  float pitch = 1.0f;                // --pitch: pitch multiplier
};

// Which options a scan knows: render's four, or preview's --voice and --rate (for preview,
// --out and --pitch are words like any other).
enum class OptionSet { render, preview };

// Scans `words` left to right. --out and --voice take the next word, or become absent when
// they are the last word; --rate and --pitch take the next word when it parses as a float and
// otherwise keep the previous value (the value word is consumed either way). Other words are
// ignored; a later option overrides an earlier one. Pure.
Options scanOptions(const std::vector<std::string>& words, OptionSet known = OptionSet::render);

// `word` as a 32-bit float when the whole word is one ("0.7", "-1e3", "nan", "inf"); nothing
// for an empty word, leading blanks or trailing characters. Pure.
std::optional<float> parseFloat32(std::string_view word);

}  // namespace tallowbrook::Speak
