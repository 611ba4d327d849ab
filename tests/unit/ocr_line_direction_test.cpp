#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

#include <gtest/gtest.h>

#include "ocr/line_direction.h"

namespace tallowbrook::VisionOCR {
namespace {

struct Mask {
  int width, height;
  std::vector<uint8_t> cells;
  Mask(int w, int h) : width(w), height(h), cells(size_t(w) * h, 0) {}
  void fill(int left, int top, int right, int bottom) {
    for (int y = top; y < bottom; ++y) {
      for (int x = left; x < right; ++x) cells[size_t(y) * width + x] = 1;
    }
  }
  // Lines of words 12 high every 20 rows, words 40 wide with gaps of 8, the gaps of each line
  // shifted against those of the line before as in real text.
  void linesAcross(int left, int top, int right, int bottom) {
    for (int y = top, n = 0; y + 12 <= bottom; y += 20, ++n) {
      fill(left, y, left + n * 17 % 40, y + 12);
      for (int x = left + n * 17 % 40 + 8; x + 40 <= right; x += 48) fill(x, y, x + 40, y + 12);
    }
  }
  // The same lines turned a quarter: 12 wide every 20 columns, words 40 high.
  void linesDown(int left, int top, int right, int bottom) {
    for (int x = left, n = 0; x + 12 <= right; x += 20, ++n) {
      fill(x, top, x + 12, top + n * 17 % 40);
      for (int y = top + n * 17 % 40 + 8; y + 40 <= bottom; y += 48) fill(x, y, x + 12, y + 40);
    }
  }
  LineDirection direction() const {
    std::vector<int> rows(height, 0), columns(width, 0);
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        rows[y] += cells[size_t(y) * width + x];
        columns[x] += cells[size_t(y) * width + x];
      }
    }
    return lineDirection(rows, columns);
  }
};

TEST(LineDirection, LinesAcrossStripeTheRows) {
  Mask page(600, 800);
  page.linesAcross(50, 50, 550, 750);
  EXPECT_EQ(page.direction(), LineDirection::across);
}

TEST(LineDirection, LinesDownStripeTheColumns) {
  Mask page(800, 600);
  page.linesDown(50, 50, 750, 550);
  EXPECT_EQ(page.direction(), LineDirection::down);
}

TEST(LineDirection, TwoColumnsOfLinesAcrossAreAcross) {
  Mask page(1000, 800);
  page.linesAcross(50, 50, 450, 750);
  page.linesAcross(550, 50, 950, 750);
  EXPECT_EQ(page.direction(), LineDirection::across);
}

TEST(LineDirection, ABorderAlongThePageLeavesTheStripes) {
  // A scanner's dark edge down the side of the page adds to every row.
  Mask across(800, 800);
  across.linesAcross(100, 50, 750, 750);
  across.fill(0, 0, 40, 800);
  EXPECT_EQ(across.direction(), LineDirection::across);
  Mask down(800, 800);
  down.linesDown(50, 100, 750, 750);
  down.fill(0, 0, 800, 40);
  EXPECT_EQ(down.direction(), LineDirection::down);
}

TEST(LineDirection, BlankPageIsUnknown) {
  EXPECT_EQ(Mask(300, 200).direction(), LineDirection::unknown);
  EXPECT_EQ(lineDirection({}, {}), LineDirection::unknown);
}

TEST(LineDirection, OneLineIsUnknownDespiteTheGapsBetweenItsWords) {
  Mask across(700, 100);
  across.linesAcross(20, 40, 680, 52);
  EXPECT_EQ(across.direction(), LineDirection::unknown);
  Mask down(100, 700);
  down.linesDown(40, 20, 52, 680);
  EXPECT_EQ(down.direction(), LineDirection::unknown);
}

TEST(LineDirection, TwoLinesAreTooFewToTell) {
  Mask page(700, 200);
  page.linesAcross(20, 40, 680, 72);
  EXPECT_EQ(page.direction(), LineDirection::unknown);
}

TEST(LineDirection, LinesFarApartAreNotAPageTurned) {
  // A heading and a footnote of large words: the gaps between the words stripe the columns,
  // but the rows between the two lines are blank, as the rows of a turned page are not.
  Mask page(900, 700);
  page.linesAcross(50, 50, 850, 62);
  page.linesAcross(50, 620, 500, 632);
  for (int x = 50; x + 60 <= 850; x += 90) page.fill(x, 300, x + 60, 340);
  EXPECT_NE(page.direction(), LineDirection::down);
}

TEST(LineDirection, LinesBesideALargeBlockAreUnknown) {
  // A few lines above a dark panel, as in a screenshot: the panel holds most of the content.
  Mask page(1600, 900);
  page.linesAcross(40, 40, 420, 200);
  page.fill(700, 100, 1560, 800);
  EXPECT_EQ(page.direction(), LineDirection::unknown);
}

TEST(LineDirection, StripesTooThinForLinesAreUnknown) {
  Mask page(600, 400);
  for (int x = 50; x < 550; x += 6) page.fill(x, 50, x + 3, 350);
  EXPECT_EQ(page.direction(), LineDirection::unknown);
}

TEST(LineDirection, ShortLinesOfWideWordsAreNotLines) {
  // Three lines of one wide word each: as high as a sixth of their length at least.
  Mask page(200, 400);
  for (int y = 50; y < 350; y += 100) page.fill(50, y, 150, y + 40);
  EXPECT_EQ(page.direction(), LineDirection::unknown);
}

TEST(LineDirection, SolidBlockIsUnknown) {
  Mask page(400, 300);
  page.fill(50, 50, 350, 250);
  EXPECT_EQ(page.direction(), LineDirection::unknown);
}

TEST(LineDirection, TableRunsAcrossThoughItsColumnsStripeTheColumns) {
  // The gutters between its columns blank a seventh of its width, the gaps between its rows
  // two fifths of its height: too much for lines running down.
  Mask page(800, 800);
  for (int y = 20; y + 12 <= 780; y += 20) {
    for (int x = 20; x + 100 <= 780; x += 120) page.fill(x, y, x + 100, y + 12);
  }
  EXPECT_EQ(page.direction(), LineDirection::across);
}

TEST(LineDirection, GridOfCellsStripedBothWaysIsUnknown) {
  Mask page(800, 800);
  for (int y = 20; y < 780; y += 20) {
    for (int x = 20; x < 780; x += 20) page.fill(x, y, x + 12, y + 12);
  }
  EXPECT_EQ(page.direction(), LineDirection::unknown);
}

// A page of lines across with a core 12 high: a stroke 6 high above the core every 30 columns
// (capitals, ascenders), one 5 below it every 90 (descenders); turned upside down when asked.
std::vector<int> rowsOfLines(int count, bool upsideDown) {
  Mask page(600, 60 + 30 * count);
  for (int n = 0; n < count; ++n) {
    const int top = 40 + 30 * n;
    page.fill(50, top, 550, top + 12);
    for (int x = 50 + n * 7 % 30; x + 4 <= 550; x += 30) page.fill(x, top - 6, x + 4, top);
    for (int x = 60 + n * 11 % 90; x + 4 <= 550; x += 90) page.fill(x, top + 12, x + 4, top + 17);
  }
  std::vector<int> rows(page.height, 0);
  for (int y = 0; y < page.height; ++y) {
    for (int x = 0; x < page.width; ++x) rows[y] += page.cells[size_t(y) * page.width + x];
  }
  if (upsideDown) std::reverse(rows.begin(), rows.end());
  return rows;
}

TEST(AscendersFirst, UprightLinesHaveTheirAscendersFirst) {
  EXPECT_EQ(ascendersFirst(rowsOfLines(10, false)), std::optional<bool>(true));
}

TEST(AscendersFirst, LinesUpsideDownHaveThemLast) {
  EXPECT_EQ(ascendersFirst(rowsOfLines(10, true)), std::optional<bool>(false));
}

TEST(AscendersFirst, TwoLinesAreTooFewToTell) {
  EXPECT_EQ(ascendersFirst(rowsOfLines(2, false)), std::nullopt);
  EXPECT_EQ(ascendersFirst(rowsOfLines(2, true)), std::nullopt);
}

TEST(AscendersFirst, PlainBarsAndBlankPagesDoNotTell) {
  EXPECT_EQ(ascendersFirst({}), std::nullopt);
  EXPECT_EQ(ascendersFirst(std::vector<int>(100, 0)), std::nullopt);
  std::vector<int> bars(300, 0);
  for (int y = 20; y + 12 <= 280; y += 30) std::fill(bars.begin() + y, bars.begin() + y + 12, 400);
  EXPECT_EQ(ascendersFirst(bars), std::nullopt);
}

TEST(AscendersFirst, StrokesAsManyOnBothSidesDoNotTell) {
  std::vector<int> rows(400, 0);
  for (int y = 20; y + 24 <= 380; y += 40) {
    std::fill(rows.begin() + y, rows.begin() + y + 6, 50);
    std::fill(rows.begin() + y + 6, rows.begin() + y + 18, 400);
    std::fill(rows.begin() + y + 18, rows.begin() + y + 24, 60);
  }
  EXPECT_EQ(ascendersFirst(rows), std::nullopt);
}

}  // namespace
}  // namespace tallowbrook::VisionOCR
