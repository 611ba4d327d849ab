// The text layer: collects the document's characters as UTF-8. Bytes of a code page are held
// back until something else comes, so that double-byte characters split over several \'hh
// are decoded whole.
#pragma once

#include <string>
#include <string_view>

#include "documents/rtf_code_pages.h"

namespace tallowbrook::rtf {

class TextSink {
 public:
  // Adds bytes of `codePage`. Control bytes (below 0x20) other than tab are dropped; a tab
  // becomes a tab character.
  void addBytes(std::string_view bytes, int codePage);
  void addByte(uint8_t byte, int codePage) {
    char c = char(byte);
    addBytes(std::string_view(&c, 1), codePage);
  }

  // Adds one Unicode character (a surrogate or a value past U+10FFFF becomes U+FFFD).
  void addCodePoint(char32_t codePoint);

  // Adds one UTF-16 code unit from \uN: a high surrogate waits for its low surrogate; either
  // one alone becomes U+FFFD.
  void addUtf16(uint16_t unit);

  // The text so far, everything held back included; the sink is empty afterwards.
  std::string take();

 private:
  void flush();
  void flushSurrogate();

  CodePageDecoder decoder_;
  std::string text_;
  std::string pending_;  // bytes of pendingCodePage_ not decoded yet
  int pendingCodePage_ = kDefaultCodePage;
  uint16_t highSurrogate_ = 0;
};

}  // namespace tallowbrook::rtf
