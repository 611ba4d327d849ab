// Characters of a page's text: UTF-8 split one character per code point, and the white space
// that lines are trimmed of.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tallowbrook::Pdf {

// `text` split into characters, one per code point, each as its UTF-8 bytes. A byte that does
// not start a valid sequence is a character of its own.
std::vector<std::string_view> splitCharacters(std::string_view text);

// Whether `character` (one element of splitCharacters) is white space or a line break: the
// Unicode space separators, U+2028, U+2029, U+0009...U+000D and U+0085.
bool isWhiteSpace(std::string_view character);

// `text` without leading and trailing white space and line breaks.
std::string trimmed(std::string_view text);

}  // namespace tallowbrook::Pdf
