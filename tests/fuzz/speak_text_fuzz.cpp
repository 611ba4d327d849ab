// Fuzzes the text a speak run reads: any bytes decode to themselves (well-formed UTF-8) or to
// nothing; the UTF-16 offsets of decoded text grow by 1 or 2 per code point and end at the
// text's UTF-16 length, whatever index is asked.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "fuzz_check.h"
#include "speech/speech_text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view input(reinterpret_cast<const char*>(data), size);
  std::string text = tallowbrook::Speak::decodeText(input);
  fuzz::check(text.empty() || text == input);
  tallowbrook::Speak::isBlank(text);
  tallowbrook::Speak::Utf16Offsets offsets(text);
  auto points = tallowbrook::Speak::codePointsOf(text);
  fuzz::check(offsets.codePoints() == int64_t(points.size()));
  int64_t length = 0;
  for (char32_t c : points) length += c > 0xFFFF ? 2 : 1;
  for (int64_t i = 0; i < offsets.codePoints(); ++i) {
    int64_t step = offsets.at(i + 1) - offsets.at(i);
    fuzz::check(step == (points[size_t(i)] > 0xFFFF ? 2 : 1));
  }
  fuzz::check(offsets.at(offsets.codePoints()) == length);
  fuzz::check(offsets.at(offsets.codePoints() + 5) == length);
  fuzz::check(offsets.at(-1) == 0);
  return 0;
}
