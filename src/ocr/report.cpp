#include "ocr/report.h"

#include <charconv>
#include <cstdlib>

namespace tallowbrook::VisionOCR {

double shortestDouble(float value) {
  char buffer[32];
  auto result = std::to_chars(buffer, buffer + sizeof buffer - 1, value);
  *result.ptr = '\0';
  return std::strtod(buffer, nullptr);
}

Json report(const Settings& settings, ImageSize size, double elapsedMs,
            const std::vector<OCRLine>& lines) {
  Json echo = Json::object();
  for (const auto& [key, value] : settings.echo()) echo[key] = value;
  Json lineObjects = Json::array();
  for (const auto& line : lines) lineObjects.push_back(line.json());
  return Json{{"type", "vision-ocr"},      {"engine", "documents"}, {"settings", echo},
              {"width", size.width},       {"height", size.height}, {"elapsedMs", elapsedMs},
              {"lineCount", lines.size()}, {"lines", lineObjects}};
}

}  // namespace tallowbrook::VisionOCR
