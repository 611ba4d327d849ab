#include "ocr/page_split.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace tallowbrook::VisionOCR {
namespace {

bool content(const GrayView& mask, int x, int y) {
  return mask.pixels[size_t(y) * mask.stride + size_t(x)] != 0;
}

// The middle of the widest run of zero counts within [from, to), if at least `minimum` long.
std::optional<int> widestBlankRun(const std::vector<int64_t>& counts, int from, int to,
                                  int minimum) {
  int bestStart = -1, bestLength = 0;
  for (int i = from; i < to;) {
    if (counts[size_t(i)] != 0) {
      ++i;
      continue;
    }
    int start = i;
    while (i < to && counts[size_t(i)] == 0) ++i;
    if (i - start > bestLength) bestStart = start, bestLength = i - start;
  }
  if (bestLength < minimum) return std::nullopt;
  return bestStart + bestLength / 2;
}

// Whether the page looks set in columns: more than a fifth of its bands of text (runs of rows
// with content, text lines as a rule) have, across their whole height, a blank run of at least
// `minimumGutter` in the middle 40% of the width with content on both sides, as lines of two
// columns side by side do; the gaps between words are narrower.
bool setInColumns(const GrayView& mask, int minimumGutter) {
  const int from = mask.width * 3 / 10, to = mask.width * 7 / 10;
  int bands = 0, bandsWithGutter = 0;
  std::vector<char> occupied(size_t(mask.width));
  for (int y = 0; y < mask.height;) {
    std::fill(occupied.begin(), occupied.end(), 0);
    bool any = false;
    for (; y < mask.height; ++y) {
      bool row = false;
      for (int x = 0; x < mask.width; ++x) {
        if (content(mask, x, y)) occupied[size_t(x)] = 1, row = true;
      }
      if (!row) break;
      any = true;
    }
    ++y;
    if (!any) continue;
    ++bands;
    int first = -1, last = -1, longest = 0, run = 0;
    for (int x = 0; x < mask.width; ++x) {
      if (occupied[size_t(x)]) {
        if (first < 0) first = x;
        last = x;
        run = 0;
      } else if (x >= from && x < to && first >= 0) {
        longest = std::max(longest, ++run);
      }
    }
    if (longest >= minimumGutter && first < from && last >= to) ++bandsWithGutter;
  }
  return 5 * bandsWithGutter > bands;
}

}  // namespace

std::optional<PageSplit> pageSplit(const GrayView& mask, int minimumGutter, int minimumGap) {
  if (mask.width <= 0 || mask.height <= 0) return std::nullopt;
  std::vector<int64_t> columns(size_t(mask.width), 0), rows(size_t(mask.height), 0);
  int64_t total = 0;
  for (int y = 0; y < mask.height; ++y) {
    for (int x = 0; x < mask.width; ++x) {
      const int c = content(mask, x, y);
      columns[size_t(x)] += c;
      rows[size_t(y)] += c;
      total += c;
    }
  }
  if (total == 0) return std::nullopt;
  auto balanced = [&](const std::vector<int64_t>& counts, int at) {
    int64_t before = 0;
    for (int i = 0; i < at; ++i) before += counts[size_t(i)];
    return 4 * before >= total && 4 * (total - before) >= total;
  };

  if (auto at = widestBlankRun(columns, mask.width * 3 / 10, mask.width * 7 / 10, minimumGutter);
      at && balanced(columns, *at)) {
    return PageSplit{true, *at};
  }

  // The blank row band closest to half of the content.
  int64_t seen = 0;
  int half = 0;
  while (half < mask.height && 2 * (seen + rows[size_t(half)]) <= total)
    seen += rows[size_t(half++)];
  std::optional<int> best;
  for (int y = mask.height * 3 / 10; y < mask.height * 7 / 10;) {
    if (rows[size_t(y)] != 0) {
      ++y;
      continue;
    }
    int start = y;
    while (y < mask.height * 7 / 10 && rows[size_t(y)] == 0) ++y;
    if (y - start < minimumGap) continue;
    int middle = start + (y - start) / 2;
    if (!best || std::abs(middle - half) < std::abs(*best - half)) best = middle;
  }
  if (!best || !balanced(rows, *best) || setInColumns(mask, minimumGutter)) return std::nullopt;
  return PageSplit{false, *best};
}

}  // namespace tallowbrook::VisionOCR
