// How much a recognised text looks like text read the right way up, judged from the shapes of
// its words alone (no dictionary).
#pragma once

#include <string>

namespace tallowbrook::VisionOCR {

// The share (0...1) of the letters and digits of `utf8` that stand in word-shaped words: after
// stripping surrounding punctuation, a word is word-shaped when each of its pieces between
// hyphens and apostrophes is lower case, capitalised or all capitals, or is a number (digits
// with inner separators, optionally followed by lower-case letters as in "1st"). Letters
// outside ASCII count as letters without case, so text in other scripts always looks upright;
// typographic quotes and dashes count as punctuation.
// Text read upside down mixes cases, digits and symbols inside words and scores low. Text
// without letters or digits scores 0. Pure.
double wordShapeShare(const std::string& utf8);

}  // namespace tallowbrook::VisionOCR
