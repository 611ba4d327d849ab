// What a text recogniser reports: documents made of paragraphs of lines, each line with its
// corners in the recogniser's bottom-left normalised space.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "ocr/geometry.h"

namespace tallowbrook::VisionOCR {

// The best reading of a line.
struct TextCandidate {
  std::string text;
  float confidence = 0;  // 0...1
};

struct LineObservation {
  // topLeft, topRight, bottomRight, bottomLeft in the reading direction of the line.
  std::array<BottomLeftPoint, 4> corners;
  std::optional<TextCandidate> topCandidate;  // absent when the recogniser has no reading
  std::string transcript;                     // the line's text without a candidate
  float confidence = 0;                       // of the line as a whole, 0...1
};

struct Paragraph {
  std::vector<LineObservation> lines;
};

// One region of the page. Lines that were not grouped into paragraphs are in `lines`, used
// only when `paragraphs` is empty.
struct DocumentObservation {
  std::vector<Paragraph> paragraphs;
  std::vector<LineObservation> lines;
};

}  // namespace tallowbrook::VisionOCR
