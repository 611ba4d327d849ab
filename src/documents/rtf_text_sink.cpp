#include "documents/rtf_text_sink.h"

namespace tallowbrook::rtf {

void TextSink::addBytes(std::string_view bytes, int codePage) {
  if (bytes.empty()) return;
  flushSurrogate();
  if (codePage != pendingCodePage_) {
    flush();
    pendingCodePage_ = codePage;
  }
  for (char c : bytes) {
    const uint8_t byte = uint8_t(c);
    if (byte >= 0x20 || c == '\t') pending_ += c;
  }
}

void TextSink::addCodePoint(char32_t codePoint) {
  flushSurrogate();
  flush();
  appendUtf8(codePoint, text_);
}

void TextSink::addUtf16(uint16_t unit) {
  if (unit >= 0xDC00 && unit <= 0xDFFF && highSurrogate_ != 0) {
    const char32_t cp = 0x10000 + ((char32_t(highSurrogate_) - 0xD800) << 10) + (unit - 0xDC00);
    highSurrogate_ = 0;
    flush();
    appendUtf8(cp, text_);
    return;
  }
  flushSurrogate();
  if (unit >= 0xD800 && unit <= 0xDBFF) {
    flush();
    highSurrogate_ = unit;
    return;
  }
  addCodePoint(unit);
}

std::string TextSink::take() {
  flushSurrogate();
  flush();
  std::string text;
  text.swap(text_);
  return text;
}

void TextSink::flush() {
  if (pending_.empty()) return;
  decoder_.decode(pending_, pendingCodePage_, text_);
  pending_.clear();
}

void TextSink::flushSurrogate() {
  if (highSurrogate_ == 0) return;
  highSurrogate_ = 0;
  flush();
  appendUtf8(0xFFFD, text_);
}

}  // namespace tallowbrook::rtf
