// Fuzzes text-pdf's request reader: any bytes decode to a request or to nothing, never a crash;
// a request's styled text has a run per title, subtitle, label and line, each ending in "\n",
// and holds the request's texts in order.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "documents/text_pdf.h"
#include "fuzz_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view input(reinterpret_cast<const char*>(data), size);
  auto request = tallowbrook::TextPdf::decode(input);
  if (!request) return 0;
  fuzz::check(input.find("\"title\"") != std::string_view::npos ||
              input.find("\\u") != std::string_view::npos);
  auto runs = tallowbrook::TextPdf::attributed(*request);
  size_t expected = 1 + (request->subtitle && !request->subtitle->empty() ? 1 : 0);
  for (const auto& line : request->lines) expected += 1 + (line.label && !line.label->empty());
  fuzz::check(runs.size() == expected);
  for (const auto& run : runs) fuzz::check(!run.text.empty() && run.text.back() == '\n');
  fuzz::check(runs.front().text.compare(0, request->title.size(), request->title) == 0);
  fuzz::check(
      runs.back().text.compare(
          0, request->lines.empty() ? request->title.size() : request->lines.back().text.size(),
          request->lines.empty() ? request->title : request->lines.back().text) == 0);
  return 0;
}
