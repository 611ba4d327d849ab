// Splitting a document's text into the lines that rtf-text prints.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tallowbrook::rtf {

// True for the characters that end a line: U+000A to U+000D, U+0085, U+2028 and U+2029.
bool isLineSeparator(char32_t c);

// True for the blanks trimmed from a line's ends: tab and the space separators (Unicode
// category Zs: U+0020, U+00A0, U+1680, U+2000 to U+200A, U+202F, U+205F, U+3000).
bool isBlank(char32_t c);

// The lines of UTF-8 `text`: split at every line separator (each one a separator of its own,
// so CR LF leaves an empty piece between them), blanks trimmed from both ends of each piece,
// empty pieces left out. Bytes that are not UTF-8 stay as they are, inside a line.
std::vector<std::string> splitLines(std::string_view text);

}  // namespace tallowbrook::rtf
