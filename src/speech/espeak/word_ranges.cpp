#include "speech/espeak/word_ranges.h"

#include <algorithm>
#include <string_view>

namespace tallowbrook::Speak {
namespace {

// Punctuation that espeak-ng does not read as a word of its own: a word announced on it is a
// shifted continuation of the word before.
bool isSilentPunctuation(char32_t c) {
  static constexpr std::u32string_view kAscii = U"!\"'(),-.:;?[]_{}";
  return kAscii.find(c) != std::u32string_view::npos || c == 0xA1 || c == 0xAB || c == 0xBB ||
         c == 0xBF || (c >= 0x2010 && c <= 0x2027) || (c >= 0x3001 && c <= 0x3003) ||
         (c >= 0x3008 && c <= 0x3011) || c == 0xFF01 || c == 0xFF08 || c == 0xFF09 || c == 0xFF0C ||
         c == 0xFF0E || c == 0xFF1A || c == 0xFF1B || c == 0xFF1F;
}

}  // namespace

WordRanges::WordRanges(std::string_view text) : codePoints_(codePointsOf(text)), offsets_(text) {}

int64_t WordRanges::tokenEnd(int64_t index) const {
  auto size = static_cast<int64_t>(codePoints_.size());
  while (index < size && !isWhiteSpace(codePoints_[static_cast<size_t>(index)])) ++index;
  return index;
}

TextRange WordRanges::map(int64_t position, int64_t length) {
  auto size = static_cast<int64_t>(codePoints_.size());
  int64_t first = std::clamp<int64_t>(position - 1, 0, size);
  int64_t end = std::clamp<int64_t>(first + std::max<int64_t>(length, 0), first, size);
  char32_t c = first < size ? codePoints_[static_cast<size_t>(first)] : U' ';
  bool onBlank = isWhiteSpace(c) || (havePrevious_ && isSilentPunctuation(c));
  bool pastToken = end > tokenEnd(first);
  if ((onBlank || pastToken) && havePrevious_) return previous_;
  if (pastToken) end = tokenEnd(first);
  TextRange range{offsets_.at(first), offsets_.at(end) - offsets_.at(first)};
  previous_ = range;
  havePrevious_ = true;
  return range;
}

}  // namespace tallowbrook::Speak
