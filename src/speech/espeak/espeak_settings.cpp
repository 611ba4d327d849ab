#include "speech/espeak/espeak_settings.h"

#include <cctype>
#include <cmath>

namespace tallowbrook::Speak {

int wordsPerMinute(float rate) {
  double r = std::isnan(rate) ? 0.5 : std::fmin(1.0, std::fmax(0.0, rate));
  double wpm =
      r <= 0.5 ? 80.0 + (175.0 - 80.0) * (r / 0.5) : 175.0 + (450.0 - 175.0) * ((r - 0.5) / 0.5);
  return static_cast<int>(std::lround(wpm));
}

int espeakPitch(float multiplier) {
  double m = std::isnan(multiplier) ? 1.0 : std::fmin(2.0, std::fmax(0.5, multiplier));
  return static_cast<int>(std::lround(50.0 * m));
}

std::string bcp47Language(std::string_view espeakName) {
  std::string out;
  bool first = true;
  bool privateUse = false;
  size_t start = 0;
  while (start <= espeakName.size()) {
    size_t end = espeakName.find('-', start);
    if (end == std::string_view::npos) end = espeakName.size();
    std::string subtag(espeakName.substr(start, end - start));
    for (char& c : subtag) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (!first) {
      if (subtag.size() == 1) privateUse = true;
      if (!privateUse && subtag.size() == 2) {
        for (char& c : subtag) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
      } else if (!privateUse && subtag.size() == 4) {
        subtag[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(subtag[0])));
      }
      out += '-';
    }
    out += subtag;
    first = false;
    start = end + 1;
  }
  return out;
}

}  // namespace tallowbrook::Speak
