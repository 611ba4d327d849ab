#include "ocr/geometry.h"

#include <cstdlib>

namespace tallowbrook::Geometry {

BBox bboxTopLeft(const std::vector<BottomLeftPoint>& corners) {
  if (corners.empty()) std::abort();  // never reached from the recogniser: it passes four
  double minX = corners.front().x, maxX = corners.front().x;
  double minY = corners.front().y, maxY = corners.front().y;
  for (const auto& p : corners) {
    if (p.x < minX) minX = p.x;
    if (p.x > maxX) maxX = p.x;
    if (p.y < minY) minY = p.y;
    if (p.y > maxY) maxY = p.y;
  }
  return BBox{minX, 1 - maxY, maxX - minX, maxY - minY};
}

namespace {

double clamp(double v) {
  if (v <= 0) v = 0;
  if (v > 1) v = 1;
  return v;
}

double nonNegative(double d) {
  return d >= 0 ? d : 0;
}  // NaN compares false: 0

}  // namespace

BBox clampedToUnitSquare(const BBox& box) {
  double x0 = clamp(box.x), y0 = clamp(box.y);
  double x1 = clamp(box.x + box.w), y1 = clamp(box.y + box.h);
  return BBox{x0, y0, nonNegative(x1 - x0), nonNegative(y1 - y0)};
}

BBox flippedVertically(const BBox& rect) {
  return BBox{rect.x, 1 - (rect.y + rect.h), rect.w, rect.h};
}

}  // namespace tallowbrook::Geometry
