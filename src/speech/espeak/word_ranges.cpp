#include "speech/espeak/word_ranges.h"

#include <algorithm>

namespace tallowbrook::Speak {

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
  bool onBlank = first >= size || isWhiteSpace(codePoints_[static_cast<size_t>(first)]);
  bool pastToken = end > tokenEnd(first);
  if ((onBlank || pastToken) && havePrevious_) return previous_;
  if (pastToken) end = tokenEnd(first);
  TextRange range{offsets_.at(first), offsets_.at(end) - offsets_.at(first)};
  previous_ = range;
  havePrevious_ = true;
  return range;
}

}  // namespace tallowbrook::Speak
