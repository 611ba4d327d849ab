// The argument rules pdf-page and pdf-text share.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace tallowbrook::Pdf {

// `word` as a decimal integer: an optional leading '+' or '-', then one or more ASCII digits,
// nothing else (no spaces). Nothing when it does not parse or does not fit in 64 bits.
std::optional<int64_t> parseInteger(std::string_view word);

// The page number `word` names: 1 or more, or nothing.
std::optional<int64_t> parsePageNumber(std::string_view word);

// Whether `pixels` is a size a page may be drawn at: 1 ... 8000.
bool drawableSize(int64_t pixels);

}  // namespace tallowbrook::Pdf
