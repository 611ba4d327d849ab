#include "ocr/geometry.h"

#include <cmath>

#include <gtest/gtest.h>

namespace tallowbrook::Geometry {
namespace {

constexpr double kClose = 1e-9;

void expectBox(const BBox& b, double x, double y, double w, double h) {
  EXPECT_NEAR(b.x, x, kClose);
  EXPECT_NEAR(b.y, y, kClose);
  EXPECT_NEAR(b.w, w, kClose);
  EXPECT_NEAR(b.h, h, kClose);
}

TEST(BboxTopLeft, TopOfPageLineGetsASmallY) {
  expectBox(bboxTopLeft({{0.1, 0.95}, {0.9, 0.95}, {0.9, 0.9}, {0.1, 0.9}}), 0.1, 0.05, 0.8, 0.05);
}

TEST(BboxTopLeft, BottomOfPageLineGetsALargeY) {
  EXPECT_NEAR(bboxTopLeft({{0.1, 0.1}, {0.9, 0.1}, {0.9, 0.05}, {0.1, 0.05}}).y, 0.9, kClose);
}

TEST(BboxTopLeft, StackedLinesKeepReadingOrder) {
  double y1 = bboxTopLeft({{0.1, 0.9}, {0.9, 0.9}, {0.9, 0.86}, {0.1, 0.86}}).y;
  double y2 = bboxTopLeft({{0.1, 0.6}, {0.9, 0.6}, {0.9, 0.56}, {0.1, 0.56}}).y;
  double y3 = bboxTopLeft({{0.1, 0.3}, {0.9, 0.3}, {0.9, 0.26}, {0.1, 0.26}}).y;
  EXPECT_LT(y1, y2);
  EXPECT_LT(y2, y3);
}

TEST(BboxTopLeft, NearTopQuadIsFlippedNotPassedThrough) {
  BBox b = bboxTopLeft({{0.0, 0.99}, {1.0, 0.99}, {1.0, 0.97}, {0.0, 0.97}});
  EXPECT_NE(b.y, 0.97);
  EXPECT_NEAR(b.y, 0.01, kClose);
}

TEST(BboxTopLeft, RotatedQuadGivesTheAxisAlignedHull) {
  BBox b = bboxTopLeft({{0.1, 0.7}, {0.8, 0.74}, {0.8, 0.7}, {0.1, 0.66}});
  EXPECT_NEAR(b.x, 0.1, kClose);
  EXPECT_NEAR(b.y, 0.26, kClose);
  EXPECT_NEAR(b.w, 0.7, kClose);
  EXPECT_NEAR(b.h, 0.08, kClose);
}

TEST(BboxTopLeft, TakesCornersInAnyOrderAndNumber) {
  expectBox(bboxTopLeft({{0.5, 0.5}}), 0.5, 0.5, 0, 0);
  expectBox(bboxTopLeft({{0.9, 0.2}, {0.1, 0.8}, {0.4, 0.5}}), 0.1, 0.2, 0.8, 0.6);
}

TEST(BboxTopLeft, DoesNotClamp) {
  expectBox(bboxTopLeft({{-0.2, 1.1}, {1.3, -0.1}}), -0.2, -0.1, 1.5, 1.2);
}

TEST(BboxTopLeft, NanSeedSurvivesAndLaterNanNeverWins) {
  BBox seeded = bboxTopLeft({{std::nan(""), 0.5}, {0.2, 0.6}});
  EXPECT_TRUE(std::isnan(seeded.x));
  EXPECT_TRUE(std::isnan(seeded.w));
  BBox later = bboxTopLeft({{0.2, 0.5}, {std::nan(""), 0.6}, {0.4, 0.7}});
  EXPECT_NEAR(later.x, 0.2, kClose);
  EXPECT_NEAR(later.w, 0.2, kClose);
}

TEST(BboxTopLeftDeathTest, EmptyListStopsTheProcess) {
  EXPECT_DEATH(bboxTopLeft({}), "");
}

TEST(ClampedToUnitSquare, KeepsTheOnPagePart) {
  expectBox(clampedToUnitSquare({-0.1, 0.5, 0.3, 0.2}), 0, 0.5, 0.2, 0.2);
  expectBox(clampedToUnitSquare({0.9, 0.95, 0.3, 0.2}), 0.9, 0.95, 0.1, 0.05);
}

TEST(ClampedToUnitSquare, BoxOffThePageCollapsesAtTheNearestEdge) {
  expectBox(clampedToUnitSquare({-0.5, 0.1, 0.2, 0.1}), 0, 0.1, 0, 0.1);
  expectBox(clampedToUnitSquare({1.5, 1.2, 0.2, 0.1}), 1, 1, 0, 0);
}

TEST(ClampedToUnitSquare, NegativeSizeBecomesZero) {
  expectBox(clampedToUnitSquare({0.5, 0.5, -0.2, -0.1}), 0.5, 0.5, 0, 0);
}

TEST(ClampedToUnitSquare, NanPassesThroughAndNanSizeIsZero) {
  BBox b = clampedToUnitSquare({std::nan(""), 0.2, 0.3, std::nan("")});
  EXPECT_TRUE(std::isnan(b.x));
  EXPECT_EQ(b.w, 0);
  EXPECT_NEAR(b.y, 0.2, kClose);
  EXPECT_EQ(b.h, 0);
}

TEST(FlippedVertically, IsItsOwnInverseAndMapsTheFullPageExactly) {
  BBox once = flippedVertically({0.2, 0.3, 0.5, 0.1});
  expectBox(once, 0.2, 0.6, 0.5, 0.1);
  expectBox(flippedVertically(once), 0.2, 0.3, 0.5, 0.1);
  BBox page = flippedVertically({0, 0, 1, 1});
  EXPECT_EQ(page.x, 0);
  EXPECT_EQ(page.y, 0);
  EXPECT_EQ(page.w, 1);
  EXPECT_EQ(page.h, 1);
}

}  // namespace
}  // namespace tallowbrook::Geometry
