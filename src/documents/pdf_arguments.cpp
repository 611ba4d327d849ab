#include "documents/pdf_arguments.h"

#include <charconv>

namespace tallowbrook::Pdf {

std::optional<int64_t> parseInteger(std::string_view word) {
  bool negative = false;
  if (!word.empty() && (word.front() == '+' || word.front() == '-')) {
    negative = word.front() == '-';
    word.remove_prefix(1);
  }
  if (word.empty()) return std::nullopt;
  for (char c : word) {
    if (c < '0' || c > '9') return std::nullopt;
  }
  uint64_t magnitude = 0;
  auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), magnitude);
  if (error != std::errc() || end != word.data() + word.size()) return std::nullopt;
  constexpr uint64_t kMax = uint64_t(INT64_MAX);
  if (negative) {
    if (magnitude > kMax + 1) return std::nullopt;
    return magnitude == kMax + 1 ? INT64_MIN : -int64_t(magnitude);
  }
  if (magnitude > kMax) return std::nullopt;
  return int64_t(magnitude);
}

std::optional<int64_t> parsePageNumber(std::string_view word) {
  auto number = parseInteger(word);
  if (!number || *number < 1) return std::nullopt;
  return number;
}

bool drawableSize(int64_t pixels) {
  // (pixels - 1) / 64 taken unsigned: 0 and negatives wrap to huge values and are refused.
  return (uint64_t(pixels) - 1) / 64 <= 124;
}

}  // namespace tallowbrook::Pdf
