#include "ocr/dark_regions.h"

#include <algorithm>

namespace tallowbrook::VisionOCR {
namespace {

constexpr uint8_t kDark = 128;
constexpr double kDarkTileShare = 0.6;
constexpr double kDarkLineShare = 0.5;
constexpr double kPlainTileShare = 0.97;

bool isDark(const GrayView& image, int x, int y) {
  return image.pixels[size_t(y) * image.stride + size_t(x)] < kDark;
}

// The share of dark pixels on row `y` between `left` and `right`.
double rowShare(const GrayView& image, int y, int left, int right) {
  int dark = 0;
  for (int x = left; x < right; ++x) dark += isDark(image, x, y);
  return right > left ? double(dark) / (right - left) : 0;
}

double columnShare(const GrayView& image, int x, int top, int bottom) {
  int dark = 0;
  for (int y = top; y < bottom; ++y) dark += isDark(image, x, y);
  return bottom > top ? double(dark) / (bottom - top) : 0;
}

// Moves an edge at `edge` (the first row or column inside the region is `edge` for a leading
// edge, `edge - 1` for a trailing one) to where the dark lines stop, by at most `reach`.
template <typename Share>
int settledEdge(int edge, bool leading, int reach, int limit, Share share) {
  auto inside = [&](int e) { return leading ? e : e - 1; };
  auto outward = leading ? -1 : 1;
  if (share(inside(edge)) >= kDarkLineShare) {
    for (int i = 0; i < reach; ++i) {
      int next = edge + outward;
      if (next < 0 || next > limit || share(inside(next)) < kDarkLineShare) break;
      edge = next;
    }
  } else {
    for (int i = 0; i < reach; ++i) {
      int next = edge - outward;
      if (inside(next) < 0 || inside(next) >= limit) break;
      edge = next;
      if (share(inside(edge)) >= kDarkLineShare) break;
    }
  }
  return edge;
}

bool overlap(const PixelBox& a, const PixelBox& b) {
  return a.left < b.right && b.left < a.right && a.top < b.bottom && b.top < a.bottom;
}

}  // namespace

std::vector<DarkRegion> darkRegions(const GrayView& image) {
  std::vector<DarkRegion> regions;
  if (image.width <= 0 || image.height <= 0) return regions;
  const int tile = std::max(16, std::min(image.width, image.height) / 40);
  const int columns = (image.width + tile - 1) / tile, rows = (image.height + tile - 1) / tile;

  std::vector<int> darkCount(size_t(columns) * rows, 0);
  for (int y = 0; y < image.height; ++y) {
    const uint8_t* row = image.pixels + size_t(y) * image.stride;
    int* counts = darkCount.data() + size_t(y / tile) * columns;
    for (int x = 0; x < image.width; ++x) counts[x / tile] += row[x] < kDark;
  }
  std::vector<char> dark(darkCount.size(), 0), plain(darkCount.size(), 0);
  for (int r = 0; r < rows; ++r) {
    for (int c = 0; c < columns; ++c) {
      int w = std::min(tile, image.width - c * tile), h = std::min(tile, image.height - r * tile);
      const size_t at = size_t(r) * columns + c;
      dark[at] = darkCount[at] >= kDarkTileShare * w * h;
      plain[at] = darkCount[at] >= kPlainTileShare * w * h;
    }
  }

  // Connected dark tiles (eight neighbours), each component's tile box and tile count.
  std::vector<char> seen(dark.size(), 0);
  std::vector<int> stack;
  for (size_t start = 0; start < dark.size(); ++start) {
    if (!dark[start] || seen[start]) continue;
    int minC = columns, minR = rows, maxC = -1, maxR = -1, count = 0, plainCount = 0;
    stack.assign(1, int(start));
    seen[start] = 1;
    while (!stack.empty()) {
      int at = stack.back();
      stack.pop_back();
      int r = at / columns, c = at % columns;
      ++count;
      plainCount += plain[size_t(at)];
      minC = std::min(minC, c), maxC = std::max(maxC, c);
      minR = std::min(minR, r), maxR = std::max(maxR, r);
      for (int dr = -1; dr <= 1; ++dr) {
        for (int dc = -1; dc <= 1; ++dc) {
          int nr = r + dr, nc = c + dc;
          if (nr < 0 || nc < 0 || nr >= rows || nc >= columns) continue;
          size_t next = size_t(nr) * columns + nc;
          if (dark[next] && !seen[next]) seen[next] = 1, stack.push_back(int(next));
        }
      }
    }
    const int boxColumns = maxC - minC + 1, boxRows = maxR - minR + 1;
    const bool large = boxColumns >= 3 && boxRows >= 3;
    const bool mostOfImage = 2 * boxColumns * boxRows >= columns * rows;
    if ((!large && !mostOfImage) || 2 * count < boxColumns * boxRows) continue;

    PixelBox box{minC * tile, minR * tile, std::min(image.width, (maxC + 1) * tile),
                 std::min(image.height, (maxR + 1) * tile)};
    const int reach = tile;
    box.top = settledEdge(box.top, true, reach, image.height,
                          [&](int y) { return rowShare(image, y, box.left, box.right); });
    box.bottom = settledEdge(box.bottom, false, reach, image.height,
                             [&](int y) { return rowShare(image, y, box.left, box.right); });
    box.left = settledEdge(box.left, true, reach, image.width,
                           [&](int x) { return columnShare(image, x, box.top, box.bottom); });
    box.right = settledEdge(box.right, false, reach, image.width,
                            [&](int x) { return columnShare(image, x, box.top, box.bottom); });
    if (box.right > box.left && box.bottom > box.top) {
      regions.push_back({box, 3 * plainCount >= count});
    }
  }

  // Boxes of components that interleave may overlap: merge them, so no pixel is inverted twice.
  for (bool merged = true; merged;) {
    merged = false;
    for (size_t i = 0; i < regions.size() && !merged; ++i) {
      for (size_t j = i + 1; j < regions.size() && !merged; ++j) {
        const PixelBox &a = regions[i].box, &b = regions[j].box;
        if (!overlap(a, b)) continue;
        regions[i].box = {std::min(a.left, b.left), std::min(a.top, b.top),
                          std::max(a.right, b.right), std::max(a.bottom, b.bottom)};
        regions[i].plainGround = regions[i].plainGround || regions[j].plainGround;
        regions.erase(regions.begin() + long(j));
        merged = true;
      }
    }
  }
  return regions;
}

}  // namespace tallowbrook::VisionOCR
