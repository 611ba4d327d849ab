// How the speak command's settings read in espeak-ng's terms.
#pragma once

#include <string>
#include <string_view>

namespace tallowbrook::Speak {

// The speaking rate (0 slowest, 0.5 default, 1 fastest; outside values are clamped, NaN is the
// default) as espeak-ng words per minute: 0 -> 80, 0.5 -> 175, 1 -> 450, linear on each half,
// rounded to the nearest word. Pure.
int wordsPerMinute(float rate);

// The pitch multiplier (0.5 ... 2.0; outside values are clamped, NaN is 1) as espeak-ng's base
// pitch on its 0-100 scale, 50 being the voice's own: 50 x multiplier, rounded. Pure.
int espeakPitch(float multiplier);

// An espeak-ng language name ("en-gb", "cmn-latn-pinyin", "en-gb-x-rp") in BCP-47 case: the
// first subtag lower case, later two-letter subtags upper case and four-letter ones title case
// up to a singleton, everything from a singleton on lower case ("en-GB", "cmn-Latn-pinyin",
// "en-GB-x-rp"). Pure.
std::string bcp47Language(std::string_view espeakName);

}  // namespace tallowbrook::Speak
