// The vision-ocr report.
#pragma once

#include <vector>

#include "base/out.h"
#include "ocr/ocr_line.h"
#include "ocr/settings.h"
#include "ocr/text_recognizer.h"

namespace tallowbrook::VisionOCR {

// {"type":"vision-ocr","engine":"documents","settings":{...},"width","height","elapsedMs",
//  "lineCount","lines":[...]}. Pure.
Json report(const Settings& settings, ImageSize size, double elapsedMs,
            const std::vector<OCRLine>& lines);

// A 32-bit value as the JSON number that reads back as the same float in its shortest form
// (0.9f is written 0.9, not 0.8999999761581421). Pure.
double shortestDouble(float value);

}  // namespace tallowbrook::VisionOCR
