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

// How the recognised image relates to the original: a crop of the original (in original
// pixels), scaled by `scale`, then turned clockwise by `quarterTurns` x 90 degrees.
struct ImageFrame {
  int quarterTurns = 0;
  double left = 0;
  double top = 0;
  double width = 0;   // of the crop, in original pixels
  double height = 0;  // of the crop, in original pixels
  double scale = 1;   // recognised pixels per original pixel
  int originalWidth = 0;
  int originalHeight = 0;

  // The whole of a `width` x `height` original, neither scaled nor turned.
  static ImageFrame whole(int width, int height) {
    return ImageFrame{0, 0, 0, double(width), double(height), 1, width, height};
  }
};

// A point of the recognised image as a bottom-left normalised point of the original. Pure.
BottomLeftPoint originalBottomLeft(const PixelPoint& point, const ImageFrame& frame);

// The frame of the part `box` of the image that `page` describes (the recognised image: scaled
// and turned), read as an image of its own in the same turn: a point of the part maps to the
// original where the same point offset by the box's corner maps through `page`. Pure.
ImageFrame turnedPartFrame(const ImageFrame& page, const PixelBox& box);

}  // namespace tallowbrook::VisionOCR
