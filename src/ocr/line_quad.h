// A text line's four corners from its pixel box and its baseline direction.
#pragma once

#include <array>

#include "ocr/geometry.h"

namespace tallowbrook::VisionOCR {

// An axis-aligned box in image pixels, y down; right and bottom exclusive.
struct PixelBox {
  int left = 0;
  int top = 0;
  int right = 0;
  int bottom = 0;
};

struct PixelPoint {
  double x = 0;
  double y = 0;
};

struct LineQuad {
  // topLeft, topRight, bottomRight, bottomLeft in the line's reading direction, in pixels.
  std::array<PixelPoint, 4> corners;
  double textHeight = 0;  // the line's height across its baseline, in pixels
};

// The rotated rectangle whose axis-aligned hull is `box` and whose long side runs along
// (dirX, dirY) (pixels, y down, pointing the way the text reads). A skewed line gives a rotated
// quad; a direction near 45 degrees, or one that cannot produce that hull, gives the box itself
// turned to the nearest axis. Pure.
LineQuad lineQuad(const PixelBox& box, double dirX, double dirY);

// How a recognised image relates to the original: the original turned clockwise by
// `quarterTurns` x 90 degrees. `width` and `height` are the original's.
struct Orientation {
  int quarterTurns = 0;
  int width = 0;
  int height = 0;
};

// A point of the turned image as a bottom-left normalised point of the original. Pure.
BottomLeftPoint originalBottomLeft(const PixelPoint& point, const Orientation& orientation);

}  // namespace tallowbrook::VisionOCR
