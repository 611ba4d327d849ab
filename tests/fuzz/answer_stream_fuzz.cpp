// Fuzzes the answer request decoder and the delta rule. The input is decoded as a request, then
// read as snapshots separated by NUL bytes: every delta must be the end of its snapshot after
// the remembered character count, never starting inside a UTF-8 sequence of valid text.
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "answer/answer_delta.h"
#include "answer/answer_request.h"
#include "fuzz_check.h"
#include "text/icu/icu_user_characters.h"

namespace {

// Strict UTF-8: no overlong forms, surrogates or values past U+10FFFF.
bool validUtf8(std::string_view text) {
  size_t i = 0;
  while (i < text.size()) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    size_t length = 0;
    unsigned char low = 0x80, high = 0xBF;  // the range of the second byte
    if (c < 0x80) {
      length = 1;
    } else if (c >= 0xC2 && c <= 0xDF) {
      length = 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
      length = 3;
      if (c == 0xE0) low = 0xA0;
      if (c == 0xED) high = 0x9F;
    } else if (c >= 0xF0 && c <= 0xF4) {
      length = 4;
      if (c == 0xF0) low = 0x90;
      if (c == 0xF4) high = 0x8F;
    } else {
      return false;
    }
    if (i + length > text.size()) return false;
    for (size_t k = 1; k < length; ++k) {
      unsigned char next = static_cast<unsigned char>(text[i + k]);
      if (k == 1 ? (next < low || next > high) : (next & 0xC0) != 0x80) return false;
    }
    i += length;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view input(reinterpret_cast<const char*>(data), size);
  // Any bytes: a request or nothing, never a crash; a request has both texts from the input.
  if (auto request = tallowbrook::Answer::decodeRequest(input)) {
    fuzz::check(input.find("\"system\"") != std::string_view::npos ||
                input.find("\\u") != std::string_view::npos);
  }

  static std::unique_ptr<tallowbrook::Text::UserCharacters> characters =
      tallowbrook::Text::makeIcuUserCharacters();
  fuzz::check(characters != nullptr);
  tallowbrook::Answer::DeltaCutter cutter(*characters);
  size_t remembered = 0;
  size_t start = 0;
  while (start <= input.size()) {
    size_t end = input.find('\0', start);
    if (end == std::string_view::npos) end = input.size();
    std::string_view snapshot = input.substr(start, end - start);
    size_t count = characters->count(snapshot);
    auto delta = cutter.next(snapshot);
    if (count <= remembered) {
      fuzz::check(!delta);
    } else {
      fuzz::check(delta.has_value());
      size_t cut = characters->prefixBytes(snapshot, remembered);
      fuzz::check(cut <= snapshot.size());
      fuzz::check(*delta == snapshot.substr(cut));
      fuzz::check(!delta->empty());
      if (validUtf8(snapshot))
        fuzz::check((static_cast<unsigned char>((*delta)[0]) & 0xC0) != 0x80);
      remembered = count;
    }
    start = end + 1;
  }
  return 0;
}
