#include "answer/utf8_text.h"

namespace tallowbrook {
namespace {

// Length of the well-formed sequence starting at `at`, or the length of its maximal ill-formed
// prefix negated (at least 1), following the table of well-formed byte sequences.
int sequenceAt(std::string_view bytes, size_t at) {
  auto byte = [&](size_t i) { return static_cast<unsigned char>(bytes[i]); };
  unsigned char lead = byte(at);
  if (lead < 0x80) return 1;
  int length;
  unsigned char low = 0x80, high = 0xBF;  // range of the second byte
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return -1;
  }
  for (int i = 1; i < length; ++i) {
    if (at + i >= bytes.size()) return -i;
    unsigned char next = byte(at + i);
    bool inRange = i == 1 ? (next >= low && next <= high) : (next >= 0x80 && next <= 0xBF);
    if (!inRange) return -i;
  }
  return length;
}

}  // namespace

bool isValidUtf8(std::string_view bytes) {
  size_t at = 0;
  while (at < bytes.size()) {
    // Runs of ASCII are the common case.
    if (static_cast<unsigned char>(bytes[at]) < 0x80) {
      ++at;
      continue;
    }
    int n = sequenceAt(bytes, at);
    if (n < 0) return false;
    at += static_cast<size_t>(n);
  }
  return true;
}

std::string repairUtf8(std::string_view bytes) {
  if (isValidUtf8(bytes)) return std::string(bytes);
  std::string text;
  text.reserve(bytes.size() + 16);
  size_t at = 0;
  while (at < bytes.size()) {
    int n = sequenceAt(bytes, at);
    if (n > 0) {
      text.append(bytes.substr(at, static_cast<size_t>(n)));
      at += static_cast<size_t>(n);
    } else {
      text.append("\xEF\xBF\xBD");
      at += static_cast<size_t>(-n);
    }
  }
  return text;
}

}  // namespace tallowbrook
