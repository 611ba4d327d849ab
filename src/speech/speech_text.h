// The text a speak run reads, and the UTF-16 offsets its ranges are reported in.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tallowbrook::Speak {

// `bytes` as text: unchanged when it is well-formed UTF-8, otherwise empty (undecodable input
// counts as no text). Pure.
std::string decodeText(std::string_view bytes);

// Whether `text` (UTF-8) holds nothing but blanks and line breaks (the Unicode White_Space
// characters), or nothing at all. Pure.
bool isBlank(std::string_view text);

// The code points of well-formed UTF-8 `text`. Pure.
std::u32string codePointsOf(std::string_view text);

// Whether `c` is a blank or line break (Unicode White_Space). Pure.
bool isWhiteSpace(char32_t c);

// UTF-16 offsets of the code points of a UTF-8 text, for turning a synthesiser's code-point
// positions into the text's UTF-16 ranges. Immutable after construction; any thread.
class Utf16Offsets {
 public:
  // `text` must be well-formed UTF-8.
  explicit Utf16Offsets(std::string_view text);

  // The UTF-16 offset where code point `index` (0-based) begins; the text's UTF-16 length for
  // an index at or past the end, 0 for a negative one.
  int64_t at(int64_t index) const;

  int64_t codePoints() const { return static_cast<int64_t>(offsets_.size()) - 1; }

 private:
  std::vector<int64_t> offsets_;  // one per code point, then the total length
};

}  // namespace tallowbrook::Speak
