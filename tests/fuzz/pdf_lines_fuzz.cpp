// Fuzzes the line building behind pdf-text: any text with any boxes gives lines whose text is
// non-empty, trimmed and free of line breaks, whose boxes have area, and the character split
// gives back every byte of the text in order.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "documents/pdf_characters.h"
#include "documents/pdf_lines.h"
#include "fuzz_check.h"

// Input: a one-byte text length n, n bytes of text, then boxes as four bytes each (x, y, width,
// height as signed small numbers, so boxes overlap, touch and sit on shared lines often).
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  size_t length = std::min<size_t>(data[0], size - 1);
  std::string_view bytes(reinterpret_cast<const char*>(data + 1), length);

  std::string joined;
  for (std::string_view c : tallowbrook::Pdf::splitCharacters(bytes)) {
    fuzz::check(!c.empty() && c.size() <= 4);
    joined += c;
  }
  fuzz::check(joined == bytes);

  tallowbrook::Pdf::PageText page;
  page.text = std::string(bytes);
  for (size_t at = 1 + length; at + 4 <= size; at += 4) {
    auto value = [&](size_t i) { return double(int8_t(data[at + i])) / 4; };
    page.boxes.push_back({value(0), value(1), value(2), value(3)});
  }
  tallowbrook::Pdf::Rect crop{0, 0, 10, 10};
  for (const auto& line : tallowbrook::PdfText::buildLines(page)) {
    fuzz::check(!line.text.empty());
    fuzz::check(line.text == tallowbrook::Pdf::trimmed(line.text));
    fuzz::check(line.text.find('\n') == std::string::npos &&
                line.text.find('\r') == std::string::npos);
    fuzz::check(line.box.width > 0 && line.box.height > 0);
    auto object = tallowbrook::PdfText::lineObject(line, crop);
    fuzz::check(std::isfinite(object["x"].get<double>()) &&
                std::isfinite(object["h"].get<double>()));
  }
  return 0;
}
