// espeak-ng's word positions as UTF-16 ranges of the text as given.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "speech/speech_text.h"

namespace tallowbrook::Speak {

struct TextRange {
  int64_t loc = 0;  // UTF-16 code units
  int64_t len = 0;
};

// espeak-ng announces each word with its 1-based code-point position and length. A token that
// it reads as several words (a number, an emoji's or a symbol's name) is announced once per
// word, and it reports the words after the first one shifted: starting one code point later,
// on the blank or punctuation after the token, or running past the token's end. Such a word
// is given the range of the word before it, so every range lies on the token that was read.
//
// Used by one synthesis, on its thread.
class WordRanges {
 public:
  // `text` must be well-formed UTF-8.
  explicit WordRanges(std::string_view text);

  // The UTF-16 range of the word espeak-ng announced at `position` (1-based code points) with
  // `length` code points.
  TextRange map(int64_t position, int64_t length);

 private:
  // The end (exclusive, 0-based code points) of the blank-free token holding `index`.
  int64_t tokenEnd(int64_t index) const;

  std::u32string codePoints_;
  Utf16Offsets offsets_;
  bool havePrevious_ = false;
  TextRange previous_;
};

}  // namespace tallowbrook::Speak
