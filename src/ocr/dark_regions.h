// Where an image shows light text on a dark background, decided from its pixels alone, so that
// those regions can be inverted before recognition instead of recognising everything twice.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "ocr/line_quad.h"

namespace tallowbrook::VisionOCR {

// Eight-bit grey pixels, 0 black, row after row `stride` bytes apart; not owned.
struct GrayView {
  const uint8_t* pixels = nullptr;
  int width = 0;
  int height = 0;
  size_t stride = 0;
};

// A region of light-on-dark content.
struct DarkRegion {
  PixelBox box;
  // Whether at least a third of the region is plain dark ground (tiles without anything light
  // on them), as in a dark window or panel; a photograph or a halftone has little.
  bool plainGround = false;
};

// The rectangles whose background is dark: the image is cut into square tiles (about a
// fortieth of its shorter side, at least 16 pixels); a tile whose pixels are mostly dark
// (below 128) is background, since text covers well under half of the area it stands on.
// Connected dark tiles make a region when they fill at least half of their bounding box and
// that box is at least 3 tiles each way, or covers half the image; thin dark shapes such as
// the strokes of large dark letters never qualify. Edges are then moved to the rows and
// columns where the darkness stops, so a panel's edge is found within a pixel or two. The
// rectangles do not overlap (merged regions are plain when any of them was). Costs one read of
// every pixel. Pure.
std::vector<DarkRegion> darkRegions(const GrayView& image);

}  // namespace tallowbrook::VisionOCR
