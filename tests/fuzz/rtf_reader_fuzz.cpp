// Fuzzes the RTF reader and the line splitting behind rtf-text: any bytes give either the
// not-RTF failure or lines that are non-empty, trimmed, free of line separators and UTF-8.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "base/error.h"
#include "documents/rich_text.h"
#include "documents/rtf_lines.h"
#include "documents/rtf_reader.h"
#include "fuzz_check.h"

namespace {

// Decodes one UTF-8 character at `pos` into `c`; false when it is not well formed.
bool nextChar(std::string_view text, size_t& pos, char32_t& c) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(pos);
  size_t count = 0;
  if (lead < 0x80) {
    c = lead;
  } else if (lead >= 0xC2 && lead <= 0xDF) {
    count = 1;
    c = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    count = 2;
    c = lead & 0x0F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    count = 3;
    c = lead & 0x07;
  } else {
    return false;
  }
  for (size_t i = 1; i <= count; ++i) {
    if (pos + i >= text.size() || (byte(pos + i) & 0xC0) != 0x80) return false;
    c = (c << 6) | (byte(pos + i) & 0x3F);
  }
  pos += count + 1;
  if ((count == 2 && c < 0x800) || (count == 3 && c < 0x10000)) return false;
  return !(c >= 0xD800 && c <= 0xDFFF) && c <= 0x10FFFF;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const std::string text = tallowbrook::rtf::readText(bytes);
  // Every character the reader writes is well-formed UTF-8.
  for (size_t pos = 0; pos < text.size();) {
    char32_t c = 0;
    fuzz::check(nextChar(text, pos, c));
  }

  std::vector<std::string> lines;
  bool refused = false;
  try {
    lines = tallowbrook::RichText::convert(bytes);
  } catch (const tallowbrook::Error& error) {
    refused = error.message() == "that file is not RTF this Mac can read";
    fuzz::check(refused);
  }
  fuzz::check(refused != tallowbrook::rtf::looksLikeRtf(bytes));
  for (const std::string& line : lines) {
    fuzz::check(!line.empty());
    std::vector<char32_t> chars;
    for (size_t pos = 0; pos < line.size();) {
      char32_t c = 0;
      fuzz::check(nextChar(line, pos, c));
      fuzz::check(!tallowbrook::rtf::isLineSeparator(c));
      chars.push_back(c);
    }
    fuzz::check(!chars.empty());
    fuzz::check(!tallowbrook::rtf::isBlank(chars.front()) &&
                !tallowbrook::rtf::isBlank(chars.back()));
  }
  return 0;
}
