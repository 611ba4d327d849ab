#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include "ocr/dark_regions.h"

namespace tallowbrook::VisionOCR {
namespace {

struct Canvas {
  int width, height;
  std::vector<uint8_t> pixels;
  Canvas(int w, int h, uint8_t level) : width(w), height(h), pixels(size_t(w) * h, level) {}
  void fill(int left, int top, int right, int bottom, uint8_t level) {
    for (int y = top; y < bottom; ++y) {
      for (int x = left; x < right; ++x) pixels[size_t(y) * width + x] = level;
    }
  }
  // Strokes like text: short bars two pixels wide, every 8 pixels, on rows of 20.
  void text(int left, int top, int right, int bottom, uint8_t level) {
    for (int y = top; y + 14 <= bottom; y += 20) {
      for (int x = left; x + 2 <= right; x += 8) fill(x, y, x + 2, y + 14, level);
    }
  }
  std::vector<DarkRegion> regions() const {
    return darkRegions({pixels.data(), width, height, size_t(width)});
  }
};

void expectBox(const DarkRegion& region, int left, int top, int right, int bottom, int slack) {
  const PixelBox& box = region.box;
  EXPECT_NEAR(box.left, left, slack);
  EXPECT_NEAR(box.top, top, slack);
  EXPECT_NEAR(box.right, right, slack);
  EXPECT_NEAR(box.bottom, bottom, slack);
}

TEST(DarkRegions, DarkTextOnALightPageHasNone) {
  Canvas page(1200, 800, 245);
  page.text(50, 50, 1150, 750, 20);
  EXPECT_TRUE(page.regions().empty());
}

TEST(DarkRegions, LargeBoldLettersAreNotPanels) {
  Canvas page(1200, 800, 250);
  page.fill(100, 100, 140, 500, 0);  // a stroke 40 pixels wide, 400 high
  page.fill(100, 460, 400, 500, 0);  // and its foot
  EXPECT_TRUE(page.regions().empty());
}

TEST(DarkRegions, AWholeDarkImageIsOneRegion) {
  Canvas page(900, 300, 30);
  page.text(40, 40, 860, 260, 220);
  auto regions = page.regions();
  ASSERT_EQ(regions.size(), 1u);
  expectBox(regions[0], 0, 0, 900, 300, 0);
}

TEST(DarkRegions, ADarkPanelIsFoundToItsEdges) {
  Canvas page(1600, 900, 246);
  page.text(40, 40, 600, 860, 20);
  page.fill(701, 103, 1561, 801, 30);
  page.text(740, 160, 1500, 400, 212);
  auto regions = page.regions();
  ASSERT_EQ(regions.size(), 1u);
  expectBox(regions[0], 701, 103, 1561, 801, 1);
  EXPECT_TRUE(regions[0].plainGround);
}

TEST(DarkRegions, AHalftonePhotographIsNotPlainGround) {
  Canvas page(1600, 1200, 255);
  page.fill(400, 300, 1200, 900, 0);
  for (int y = 300; y < 900; y += 3) {
    for (int x = 400 + (y / 3) % 2; x < 1200; x += 3) page.fill(x, y, x + 1, y + 1, 255);
  }
  auto regions = page.regions();
  ASSERT_EQ(regions.size(), 1u);
  expectBox(regions[0], 400, 300, 1200, 900, 2);
  EXPECT_FALSE(regions[0].plainGround);
}

TEST(DarkRegions, TwoPanelsStaySeparate) {
  Canvas page(1600, 900, 255);
  page.fill(50, 50, 500, 400, 0);
  page.fill(900, 450, 1500, 850, 40);
  auto regions = page.regions();
  ASSERT_EQ(regions.size(), 2u);
  expectBox(regions[0], 50, 50, 500, 400, 1);
  expectBox(regions[1], 900, 450, 1500, 850, 1);
}

TEST(DarkRegions, TinyAndEmptyImages) {
  Canvas dark(5, 5, 0);
  auto regions = dark.regions();
  ASSERT_EQ(regions.size(), 1u);
  expectBox(regions[0], 0, 0, 5, 5, 0);
  EXPECT_TRUE(Canvas(5, 5, 255).regions().empty());
  EXPECT_TRUE(darkRegions({nullptr, 0, 0, 0}).empty());
}

}  // namespace
}  // namespace tallowbrook::VisionOCR
