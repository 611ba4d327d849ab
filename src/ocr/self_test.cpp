#include "ocr/self_test.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace tallowbrook::Geometry {
namespace {

bool close(double a, double b) {
  return std::fabs(a - b) < 1e-9;
}

std::vector<BottomLeftPoint> line(double left, double right, double top, double bottom) {
  return {{left, top}, {right, top}, {right, bottom}, {left, bottom}};
}

}  // namespace

std::vector<std::string> selfTestFailures(const Conversions& c) {
  std::vector<std::string> failures;
  auto check = [&](bool passed, const char* text) {
    if (!passed) failures.emplace_back(text);
  };

  BBox top = c.bboxTopLeft(line(0.1, 0.9, 0.95, 0.9));
  check(close(top.x, 0.1) && close(top.w, 0.8), "top-of-page x/w");
  check(close(top.y, 0.05), "a top-of-page line must get a SMALL y (1 - 0.95)");
  check(close(top.h, 0.05), "top-of-page height");
  check(top.y < 0.5, "a top-of-page line must land in the top half");

  BBox bottom = c.bboxTopLeft(line(0.1, 0.9, 0.1, 0.05));
  check(close(bottom.y, 0.9), "a bottom-of-page line must get a LARGE y (1 - 0.10)");
  check(bottom.y > 0.5, "a bottom-of-page line must land in the bottom half");

  std::vector<double> ys = {c.bboxTopLeft(line(0.1, 0.9, 0.9, 0.86)).y,
                            c.bboxTopLeft(line(0.1, 0.9, 0.6, 0.56)).y,
                            c.bboxTopLeft(line(0.1, 0.9, 0.3, 0.26)).y};
  std::vector<double> sorted = ys;
  std::sort(sorted.begin(), sorted.end());
  check(ys == sorted && ys[0] < ys[1] && ys[1] < ys[2],
        "after conversion line 1 must be above line 2 must be above line 3");

  BBox twice = c.flip(c.flip(BBox{0.2, 0.3, 0.5, 0.1}));
  check(close(twice.x, 0.2) && close(twice.y, 0.3) && close(twice.w, 0.5) && close(twice.h, 0.1),
        "the flip must be its own inverse");

  BBox page = c.flip(BBox{0, 0, 1, 1});
  check(page.x == 0 && page.y == 0 && page.w == 1 && page.h == 1,
        "a full-page rect maps to the unit square");

  BBox guard = c.bboxTopLeft(line(0.0, 1.0, 0.99, 0.97));
  check(guard.y != 0.97, "y was passed through UNFLIPPED");
  check(close(guard.y, 0.01), "unflipped-guard value");

  BBox rotated = c.bboxTopLeft({{0.1, 0.7}, {0.8, 0.74}, {0.8, 0.7}, {0.1, 0.66}});
  check(close(rotated.x, 0.1) && close(rotated.y, 0.26) && close(rotated.h, 0.07999999999999996),
        "a rotated quad must use the axis-aligned hull");

  return failures;
}

Json selfTestReport(const std::vector<std::string>& failures) {
  return Json{{"type", "vision-ocr-selftest"},
              {"checks", 14},
              {"failed", failures.size()},
              {"failures", failures}};
}

void selfTest(const Conversions& conversions) {
  auto failures = selfTestFailures(conversions);
  writeJsonLine(selfTestReport(failures));
  if (!failures.empty()) std::_Exit(1);
}

}  // namespace tallowbrook::Geometry
