// Conversion of the recogniser's bottom-left normalised corners into the helper's top-left
// normalised boxes. All functions are pure and may be called from any thread.
#pragma once

#include <vector>

namespace tallowbrook {

// A corner as the recogniser reports it: normalised to the image, origin bottom-left, y up.
// Values outside [0, 1] are allowed.
struct BottomLeftPoint {
  double x = 0;
  double y = 0;
};

// An axis-aligned box normalised to the image or page: origin top-left, y down; x and w are
// fractions of the width, y and h of the height.
struct BBox {
  double x = 0;
  double y = 0;
  double w = 0;
  double h = 0;
};

namespace Geometry {

// The axis-aligned hull of `corners` (any number, any order), flipped into top-left space:
// x = minX, y = 1 - maxY, w = maxX - minX, h = maxY - minY. Nothing is clamped. Minima and
// maxima are a left-to-right scan seeded with the first value that replaces only on a strictly
// smaller/larger candidate, so a NaN seed survives and a later NaN never wins.
// `corners` must not be empty: that is a programming error and aborts the process.
BBox bboxTopLeft(const std::vector<BottomLeftPoint>& corners);

// Clips `box` to the unit square, keeping only its on-page part. Each edge is clamped (<= 0
// gives 0, then > 1 gives 1, NaN passes through); the far edges come from the unclamped origin
// plus the size; a negative or NaN size becomes 0.
BBox clampedToUnitSquare(const BBox& box);

// Maps a rectangle between bottom-left and top-left space: (x, 1 - (y + h), w, h). Its own
// inverse.
BBox flippedVertically(const BBox& rect);

}  // namespace Geometry
}  // namespace tallowbrook
