#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include "ocr/page_split.h"

namespace tallowbrook::VisionOCR {
namespace {

struct Mask {
  int width, height;
  std::vector<uint8_t> cells;
  Mask(int w, int h) : width(w), height(h), cells(size_t(w) * h, 0) {}
  // Lines of "words" 6 high every 10 rows, words 20 wide with gaps of 3.
  void lines(int left, int top, int right, int bottom) {
    for (int y = top; y + 6 <= bottom; y += 10) {
      for (int x = left; x + 20 <= right; x += 23) {
        for (int dy = 0; dy < 6; ++dy) {
          for (int dx = 0; dx < 20; ++dx) cells[size_t(y + dy) * width + x + dx] = 1;
        }
      }
    }
  }
  std::optional<PageSplit> split() const {
    return pageSplit({cells.data(), width, height, size_t(width)}, 6, 2);
  }
};

TEST(PageSplit, OneColumnIsCutBetweenLinesNearItsMiddle) {
  Mask page(600, 800);
  page.lines(50, 50, 550, 750);
  auto split = page.split();
  ASSERT_TRUE(split);
  EXPECT_FALSE(split->vertical);
  EXPECT_NEAR(split->at, 400, 10);
  // The cut runs through blank rows only.
  for (int x = 0; x < 600; ++x) EXPECT_EQ(page.cells[size_t(split->at) * 600 + x], 0);
}

TEST(PageSplit, TwoColumnsAreCutAtTheirGutter) {
  Mask page(600, 800);
  page.lines(40, 50, 280, 750);
  page.lines(320, 50, 560, 750);
  auto split = page.split();
  ASSERT_TRUE(split);
  EXPECT_TRUE(split->vertical);
  EXPECT_GT(split->at, 280);
  EXPECT_LT(split->at, 320);
}

TEST(PageSplit, ColumnsUnderAWideHeadingAreNotCutAcross) {
  Mask page(600, 800);
  page.lines(40, 20, 560, 80);  // a heading across both columns
  page.lines(40, 100, 280, 750);
  page.lines(320, 100, 560, 750);
  EXPECT_FALSE(page.split());
}

TEST(PageSplit, LopsidedOrEmptyPagesAreNotCut) {
  Mask empty(600, 800);
  EXPECT_FALSE(empty.split());
  Mask top(600, 800);
  top.lines(50, 20, 550, 200);  // all the text in the top quarter
  EXPECT_FALSE(top.split());
  EXPECT_FALSE(pageSplit({nullptr, 0, 0, 0}, 6, 2));
}

}  // namespace
}  // namespace tallowbrook::VisionOCR
