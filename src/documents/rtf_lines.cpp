#include "documents/rtf_lines.h"

namespace tallowbrook::rtf {
namespace {

// Decodes the UTF-8 character at `pos` and returns it, setting `length` to its byte count. A
// byte that does not start a well-formed character comes back alone (length 1) as 0xFFFFFFFF,
// which is neither a separator nor a blank.
char32_t decodeAt(std::string_view text, size_t pos, size_t& length) {
  const auto byte = [&](size_t i) { return uint8_t(text[i]); };
  const uint8_t lead = byte(pos);
  length = 1;
  if (lead < 0x80) return lead;
  size_t count = 0;
  char32_t cp = 0;
  if (lead >= 0xC2 && lead <= 0xDF) {
    count = 1;
    cp = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    count = 2;
    cp = lead & 0x0F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    count = 3;
    cp = lead & 0x07;
  } else {
    return 0xFFFFFFFF;
  }
  for (size_t i = 1; i <= count; ++i) {
    if (pos + i >= text.size() || (byte(pos + i) & 0xC0) != 0x80) return 0xFFFFFFFF;
    cp = (cp << 6) | (byte(pos + i) & 0x3F);
  }
  length = count + 1;
  return cp;
}

}  // namespace

bool isLineSeparator(char32_t c) {
  return (c >= 0x0A && c <= 0x0D) || c == 0x85 || c == 0x2028 || c == 0x2029;
}

bool isBlank(char32_t c) {
  return c == '\t' || c == ' ' || c == 0xA0 || c == 0x1680 || (c >= 0x2000 && c <= 0x200A) ||
         c == 0x202F || c == 0x205F || c == 0x3000;
}

std::vector<std::string> splitLines(std::string_view text) {
  std::vector<std::string> lines;
  size_t firstKept = 0;  // first byte after the leading blanks
  size_t keptEnd = 0;    // end of the last character that is not a blank
  bool sawText = false;
  size_t pos = 0;
  const auto endPiece = [&]() {
    if (sawText) lines.emplace_back(text.substr(firstKept, keptEnd - firstKept));
    sawText = false;
  };
  while (pos < text.size()) {
    size_t length = 1;
    const char32_t c = decodeAt(text, pos, length);
    if (isLineSeparator(c)) {
      endPiece();
    } else if (!isBlank(c)) {
      if (!sawText) firstKept = pos;
      sawText = true;
      keptEnd = pos + length;
    }
    pos += length;
  }
  endPiece();
  return lines;
}

}  // namespace tallowbrook::rtf
