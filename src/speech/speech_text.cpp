#include "speech/speech_text.h"

#include "text/utf8_text.h"

namespace tallowbrook::Speak {
namespace {

// The code point starting at bytes[i] of well-formed UTF-8, and its length in bytes.
char32_t decodeAt(std::string_view bytes, size_t i, size_t* length) {
  auto byte = [&](size_t k) { return static_cast<unsigned char>(bytes[k]); };
  unsigned char lead = byte(i);
  if (lead < 0x80) {
    *length = 1;
    return lead;
  }
  size_t n = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  char32_t c = lead & (0x7F >> n);
  for (size_t k = 1; k < n && i + k < bytes.size(); ++k) c = (c << 6) | (byte(i + k) & 0x3F);
  *length = n;
  return c;
}

}  // namespace

bool isWhiteSpace(char32_t c) {
  return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680 ||
         (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F ||
         c == 0x3000;
}

std::u32string codePointsOf(std::string_view text) {
  std::u32string out;
  for (size_t i = 0; i < text.size();) {
    size_t length = 1;
    out.push_back(decodeAt(text, i, &length));
    i += length;
  }
  return out;
}

std::string decodeText(std::string_view bytes) {
  if (!isValidUtf8(bytes)) return {};
  return std::string(bytes);
}

bool isBlank(std::string_view text) {
  for (size_t i = 0; i < text.size();) {
    size_t length = 1;
    if (!isWhiteSpace(decodeAt(text, i, &length))) return false;
    i += length;
  }
  return true;
}

Utf16Offsets::Utf16Offsets(std::string_view text) {
  int64_t units = 0;
  for (size_t i = 0; i < text.size();) {
    size_t length = 1;
    char32_t c = decodeAt(text, i, &length);
    offsets_.push_back(units);
    units += c >= 0x10000 ? 2 : 1;
    i += length;
  }
  offsets_.push_back(units);
}

int64_t Utf16Offsets::at(int64_t index) const {
  if (index < 0) return 0;
  if (index >= codePoints()) return offsets_.back();
  return offsets_[static_cast<size_t>(index)];
}

}  // namespace tallowbrook::Speak
