#include "ocr/line_quad.h"

#include <cmath>

namespace tallowbrook::VisionOCR {

LineQuad lineQuad(const PixelBox& box, double dirX, double dirY) {
  const double width = box.right - box.left;
  const double height = box.bottom - box.top;
  double length = std::hypot(dirX, dirY);
  double ux = length > 0 ? dirX / length : 1, uy = length > 0 ? dirY / length : 0;

  // A rectangle of length L and height h turned to direction u has the hull
  //   width = L|ux| + h|uy|,  height = L|uy| + h|ux|.
  const double a = std::fabs(ux), b = std::fabs(uy);
  const double det = a * a - b * b;
  double lineLength = 0, textHeight = 0;
  bool solved = false;
  if (std::fabs(det) > 0.2) {
    lineLength = (width * a - height * b) / det;
    textHeight = (height * a - width * b) / det;
    solved = lineLength > 0 && textHeight > 0;
  }
  if (!solved) {
    // Turn to the nearest axis, keeping the reading sense.
    if (a >= b) {
      ux = ux < 0 ? -1 : 1, uy = 0;
      lineLength = width, textHeight = height;
    } else {
      ux = 0, uy = uy < 0 ? -1 : 1;
      lineLength = height, textHeight = width;
    }
  }

  // "Up" for the text: the reading direction turned a quarter against the clock (y down).
  const double upX = uy, upY = -ux;
  const double cx = box.left + width / 2, cy = box.top + height / 2;
  auto corner = [&](double along, double up) {
    return PixelPoint{cx + ux * along * lineLength / 2 + upX * up * textHeight / 2,
                      cy + uy * along * lineLength / 2 + upY * up * textHeight / 2};
  };
  return LineQuad{{corner(-1, 1), corner(1, 1), corner(1, -1), corner(-1, -1)}, textHeight};
}

BottomLeftPoint originalBottomLeft(const PixelPoint& point, const ImageFrame& frame) {
  // Undo the turn inside the scaled crop, whose size is w x h before turning.
  const double w = frame.width * frame.scale, h = frame.height * frame.scale;
  double x = point.x, y = point.y;
  switch (((frame.quarterTurns % 4) + 4) % 4) {
    case 1:  // turned clockwise: x' = h - y, y' = x
      x = point.y, y = h - point.x;
      break;
    case 2:
      x = w - point.x, y = h - point.y;
      break;
    case 3:  // turned against the clock: x' = y, y' = w - x
      x = w - point.y, y = point.x;
      break;
    default:
      break;
  }
  const double originalX = frame.left + x / frame.scale;
  const double originalY = frame.top + y / frame.scale;
  return BottomLeftPoint{originalX / frame.originalWidth, 1 - originalY / frame.originalHeight};
}

ImageFrame turnedPartFrame(const ImageFrame& page, const PixelBox& box) {
  // The box as it lies in the scaled crop before turning (w x h), by the inverse of each turn.
  const double w = page.width * page.scale, h = page.height * page.scale;
  double x0 = box.left, x1 = box.right, y0 = box.top, y1 = box.bottom;
  switch (((page.quarterTurns % 4) + 4) % 4) {
    case 1:  // a turned point (x', y') was (y', h - x')
      x0 = box.top, x1 = box.bottom, y0 = h - box.right, y1 = h - box.left;
      break;
    case 2:  // (w - x', h - y')
      x0 = w - box.right, x1 = w - box.left, y0 = h - box.bottom, y1 = h - box.top;
      break;
    case 3:  // (w - y', x')
      x0 = w - box.bottom, x1 = w - box.top, y0 = box.left, y1 = box.right;
      break;
    default:
      break;
  }
  ImageFrame part = page;
  part.left += x0 / page.scale;
  part.top += y0 / page.scale;
  part.width = (x1 - x0) / page.scale;
  part.height = (y1 - y0) / page.scale;
  return part;
}

}  // namespace tallowbrook::VisionOCR
