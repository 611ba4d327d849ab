#include "text/utf8_text.h"

namespace tallowbrook {
namespace {

// Length of the well-formed sequence starting at `at`, or the length of its maximal ill-formed
// prefix negated (at least 1), following the table of well-formed byte sequences.
// The length of a sequence led by `lead` and the range of its second byte; length 0 when `lead`
// leads none.
struct Lead {
  int length = 0;
  unsigned char low = 0x80, high = 0xBF;
};

Lead leadOf(unsigned char lead) {
  Lead l;
  if (lead < 0x80) {
    l.length = 1;
  } else if (lead >= 0xC2 && lead <= 0xDF) {
    l.length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    l.length = 3;
    if (lead == 0xE0) l.low = 0xA0;
    if (lead == 0xED) l.high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    l.length = 4;
    if (lead == 0xF0) l.low = 0x90;
    if (lead == 0xF4) l.high = 0x8F;
  }
  return l;
}

int sequenceAt(std::string_view bytes, size_t at) {
  auto byte = [&](size_t i) { return static_cast<unsigned char>(bytes[i]); };
  Lead lead = leadOf(byte(at));
  if (lead.length == 1) return 1;
  if (lead.length == 0) return -1;
  int length = lead.length;
  unsigned char low = lead.low, high = lead.high;
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

size_t incompleteUtf8Tail(std::string_view bytes) {
  size_t size = bytes.size();
  for (size_t back = 1; back <= 3 && back <= size; ++back) {
    size_t at = size - back;
    Lead lead = leadOf(static_cast<unsigned char>(bytes[at]));
    if (lead.length == 0) continue;             // a continuation byte: look further back
    if (size_t(lead.length) <= back) return 0;  // ASCII, or a sequence with room to end
    for (size_t i = 1; i < back; ++i) {
      auto next = static_cast<unsigned char>(bytes[at + i]);
      bool inRange =
          i == 1 ? (next >= lead.low && next <= lead.high) : (next >= 0x80 && next <= 0xBF);
      if (!inRange) return 0;
    }
    return back;
  }
  return 0;
}

}  // namespace tallowbrook
