#include "ocr/ocr_line.h"

#include "ocr/report.h"

namespace tallowbrook::VisionOCR {

Json OCRLine::json() const {
  Json object{{"index", index},
              {"ord", index},
              {"text", text},
              {"bbox", {{"x", bbox.x}, {"y", bbox.y}, {"w", bbox.w}, {"h", bbox.h}}}};
  if (confidence) object["confidence"] = shortestDouble(*confidence);
  if (obsConfidence) object["obsConfidence"] = shortestDouble(*obsConfidence);
  if (block) object["block"] = *block;
  return object;
}

OCRLine line(const LineObservation& observation, int index, std::optional<int> block) {
  OCRLine result;
  std::vector<BottomLeftPoint> corners(observation.corners.begin(), observation.corners.end());
  result.bbox = Geometry::clampedToUnitSquare(Geometry::bboxTopLeft(corners));
  if (observation.topCandidate) {
    result.text = observation.topCandidate->text;
    result.confidence = observation.topCandidate->confidence;
  } else {
    result.text = observation.transcript;
  }
  result.obsConfidence = observation.confidence;
  result.index = index;
  result.block = block;
  return result;
}

std::vector<OCRLine> collectLines(const std::vector<DocumentObservation>& observations) {
  std::vector<OCRLine> lines;
  int paragraphCounter = 0;
  for (const auto& observation : observations) {
    if (!observation.paragraphs.empty()) {
      for (const auto& paragraph : observation.paragraphs) {
        for (const auto& lineObservation : paragraph.lines) {
          lines.push_back(line(lineObservation, int(lines.size()), paragraphCounter));
        }
        ++paragraphCounter;
      }
    } else {
      for (const auto& lineObservation : observation.lines) {
        lines.push_back(line(lineObservation, int(lines.size()), std::nullopt));
      }
    }
  }
  return lines;
}

}  // namespace tallowbrook::VisionOCR
