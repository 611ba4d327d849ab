// The lines of the vision-ocr report.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/out.h"
#include "ocr/geometry.h"
#include "ocr/observation.h"

namespace tallowbrook::VisionOCR {

struct OCRLine {
  int index = 0;  // position in the whole output, across paragraphs and observations
  std::string text;
  std::optional<float> confidence;     // of the top candidate; absent without one
  std::optional<float> obsConfidence;  // of the line observation
  BBox bbox;                           // top-left normalised, inside the unit square
  std::optional<int> block;            // paragraph number; absent for ungrouped lines

  // {"index","ord","text","bbox":{x,y,w,h}} plus "confidence", "obsConfidence" and "block"
  // when set. Pure.
  Json json() const;
};

// One report line from a recogniser line: hull and flip of its corners, clipped to the unit
// square; the top candidate's text and confidence, or the transcript without a confidence.
// Pure.
OCRLine line(const LineObservation& observation, int index, std::optional<int> block);

// All lines in output order: observations in order; in each, paragraph by paragraph with one
// running paragraph number across all observations (an empty paragraph still takes a number),
// or, for an observation without paragraphs, its lines with no paragraph number. Pure.
std::vector<OCRLine> collectLines(const std::vector<DocumentObservation>& observations);

}  // namespace tallowbrook::VisionOCR
