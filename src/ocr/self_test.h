// The geometry self-test behind `vision-ocr --self-test`: proves on the running machine that
// recogniser boxes are flipped the right way round.
#pragma once

#include <string>
#include <vector>

#include "base/out.h"
#include "ocr/geometry.h"

namespace tallowbrook::Geometry {

// The conversions under test. The helper tests its own; tests hand in broken ones to prove
// that the checks catch them.
struct Conversions {
  BBox (*bboxTopLeft)(const std::vector<BottomLeftPoint>&) = Geometry::bboxTopLeft;
  BBox (*flip)(const BBox&) = Geometry::flippedVertically;
};

// Runs all twelve checks in order, whatever the earlier ones found, and returns the failure
// texts in check order. Pure.
std::vector<std::string> selfTestFailures(const Conversions& conversions = {});

// The report: {"type":"vision-ocr-selftest","checks":14,"failed":N,"failures":[...]}.
// "checks" is the fixed number 14. Pure.
Json selfTestReport(const std::vector<std::string>& failures);

// Runs the checks on `conversions`, prints the report and, if any check failed, ends the
// process with status 1; otherwise returns. Main thread only.
void selfTest(const Conversions& conversions = {});

}  // namespace tallowbrook::Geometry
