#include "ocr/line_direction.h"

#include <algorithm>
#include <cstdint>

namespace tallowbrook::VisionOCR {
namespace {

// At least this many lines make stripes.
constexpr int kMinimumLines = 3;
// A line is at least this many times as long as it is high.
constexpr int kLineAspect = 6;
// A row or column is a gap between lines when it holds at most this share of the fullest one:
// a little of a skewed line or an accent may reach into the gap.
constexpr int kGapShare = 50;

// Along the lines, at most this share (1 / kBlankShare) of the span of the content is blank in
// the other profile: lines far apart are separate labels or headings, not a page of text, and
// the gaps between the lines of a page turned a quarter blank more than that.
constexpr int kBlankShare = 4;

// Lines hold at least this share of the content (1 / kLineContent): a large block beside a few
// small lines (a dark panel) is no page of lines. Pictures beside columns of text may hold more
// than the text.
constexpr int kLineContent = 8;
// Lines are at least this many pixels high: narrower runs are letters or strokes.
constexpr int kMinimumLineHeight = 6;
// The strokes on one side of the cores of the lines weigh this many halves of those on the
// other when that side is clearly the side of the ascenders.
constexpr int kStrokeWeight = 3;
// A run of content this many times as long as the median run is no line.
constexpr int kLongRun = 3;

// The runs of content in `profile` (their lengths and the content in each), the span from its
// first content to its last, and how much of that span is blank.
struct Runs {
  std::vector<int> starts;
  std::vector<int> lengths;
  std::vector<int64_t> content;
  int span = 0;
  int blank = 0;
};

Runs runsOf(const std::vector<int>& profile) {
  Runs runs;
  const int peak = profile.empty() ? 0 : *std::max_element(profile.begin(), profile.end());
  if (peak <= 0) return runs;
  // A border or rule along the whole page adds the same to every row (column): gaps between
  // lines are measured above the least content within the span of the content.
  auto nonzero = [](int value) { return value > 0; };
  const auto from = std::find_if(profile.begin(), profile.end(), nonzero);
  const auto to = std::find_if(profile.rbegin(), profile.rend(), nonzero).base();
  const int floor = *std::min_element(from, to);
  const int gap = floor + (peak - floor) / kGapShare;
  int first = -1, last = -1, start = -1;
  int64_t sum = 0;
  for (int i = 0; i <= int(profile.size()); ++i) {
    const bool content = i < int(profile.size()) && profile[i] > gap;
    if (content) {
      if (first < 0) first = i;
      last = i;
      if (start < 0) start = i, sum = 0;
      sum += profile[i];
    } else if (start >= 0) {
      runs.starts.push_back(start);
      runs.lengths.push_back(i - start);
      runs.content.push_back(sum);
      start = -1;
    }
  }
  runs.span = last - first + 1;
  for (int length : runs.lengths) runs.blank -= length;
  runs.blank += runs.span;
  return runs;
}

// Whether `runs` are lines, each far shorter than the span of the content along them, which
// `along` profiles.
bool striped(const Runs& runs, const Runs& along) {
  if (int(runs.lengths.size()) < kMinimumLines || along.blank * kBlankShare > along.span) {
    return false;
  }
  std::vector<int> lengths = runs.lengths;
  auto middle = lengths.begin() + lengths.size() / 2;
  std::nth_element(lengths.begin(), middle, lengths.end());
  const int median = *middle;
  if (median < kMinimumLineHeight || median * kLineAspect > along.span) return false;
  int64_t all = 0, inLines = 0;
  for (size_t i = 0; i < runs.lengths.size(); ++i) {
    all += runs.content[i];
    if (runs.lengths[i] <= median * kLongRun) inLines += runs.content[i];
  }
  return inLines * kLineContent >= all;
}

}  // namespace

LineDirection lineDirection(const std::vector<int>& rows, const std::vector<int>& columns) {
  const Runs across = runsOf(rows), down = runsOf(columns);
  const bool rowsStriped = striped(across, down);
  const bool columnsStriped = striped(down, across);
  if (rowsStriped == columnsStriped) return LineDirection::unknown;
  return rowsStriped ? LineDirection::across : LineDirection::down;
}

std::optional<bool> ascendersFirst(const std::vector<int>& profile) {
  const Runs runs = runsOf(profile);
  int lines = 0;
  int64_t above = 0, below = 0;
  for (size_t n = 0; n < runs.lengths.size(); ++n) {
    // The line's core, and the strokes before and after it.
    const int start = runs.starts[n], end = start + runs.lengths[n];
    if (runs.lengths[n] < kMinimumLineHeight) continue;
    const int peak = *std::max_element(profile.begin() + start, profile.begin() + end);
    int top = start, bottom = end - 1;
    while (profile[top] * 2 < peak) ++top;
    while (profile[bottom] * 2 < peak) --bottom;
    for (int i = start; i < top; ++i) above += profile[i];
    for (int i = bottom + 1; i < end; ++i) below += profile[i];
    ++lines;
  }
  if (lines < kMinimumLines) return std::nullopt;
  if (above * 2 > below * kStrokeWeight) return true;
  if (below * 2 > above * kStrokeWeight) return false;
  return std::nullopt;
}

}  // namespace tallowbrook::VisionOCR
