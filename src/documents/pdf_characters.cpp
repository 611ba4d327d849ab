#include "documents/pdf_characters.h"

#include <cstdint>

namespace tallowbrook::Pdf {
namespace {

// Length of the valid UTF-8 sequence starting at text[i], or 1 for a stray byte.
size_t sequenceLength(std::string_view text, size_t i) {
  auto byte = [&](size_t k) { return uint8_t(text[k]); };
  uint8_t lead = byte(i);
  size_t length = lead < 0x80                   ? 1
                  : lead >= 0xC2 && lead < 0xE0 ? 2
                  : lead >= 0xE0 && lead < 0xF0 ? 3
                  : lead >= 0xF0 && lead < 0xF5 ? 4
                                                : 0;
  if (length <= 1 || i + length > text.size()) return 1;
  for (size_t k = 1; k < length; ++k) {
    if ((byte(i + k) & 0xC0) != 0x80) return 1;
  }
  return length;
}

uint32_t codePoint(std::string_view c) {
  auto byte = [&](size_t k) { return uint32_t(uint8_t(c[k])); };
  switch (c.size()) {
    case 1:
      return byte(0);
    case 2:
      return (byte(0) & 0x1F) << 6 | (byte(1) & 0x3F);
    case 3:
      return (byte(0) & 0x0F) << 12 | (byte(1) & 0x3F) << 6 | (byte(2) & 0x3F);
    case 4:
      return (byte(0) & 0x07) << 18 | (byte(1) & 0x3F) << 12 | (byte(2) & 0x3F) << 6 |
             (byte(3) & 0x3F);
    default:
      return 0xFFFD;
  }
}

}  // namespace

std::vector<std::string_view> splitCharacters(std::string_view text) {
  std::vector<std::string_view> characters;
  for (size_t i = 0; i < text.size();) {
    size_t length = sequenceLength(text, i);
    characters.push_back(text.substr(i, length));
    i += length;
  }
  return characters;
}

bool isWhiteSpace(std::string_view character) {
  if (character.empty()) return false;
  uint32_t c = codePoint(character);
  return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680 ||
         (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F ||
         c == 0x3000;
}

std::string trimmed(std::string_view text) {
  auto characters = splitCharacters(text);
  size_t first = 0;
  size_t last = characters.size();
  while (first < last && isWhiteSpace(characters[first])) ++first;
  while (last > first && isWhiteSpace(characters[last - 1])) --last;
  if (first == last) return {};
  const char* begin = characters[first].data();
  const char* end = characters[last - 1].data() + characters[last - 1].size();
  return std::string(begin, end);
}

}  // namespace tallowbrook::Pdf
