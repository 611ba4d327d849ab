#include <cmath>

#include <gtest/gtest.h>

#include "ocr/geometry.h"
#include "ocr/line_quad.h"

namespace tallowbrook::VisionOCR {
namespace {

constexpr double kPi = 3.14159265358979323846;

void expectPoint(const PixelPoint& p, double x, double y) {
  EXPECT_NEAR(p.x, x, 1e-6);
  EXPECT_NEAR(p.y, y, 1e-6);
}

TEST(LineQuad, StraightLineIsItsBox) {
  LineQuad quad = lineQuad({10, 20, 110, 40}, 1, 0);
  expectPoint(quad.corners[0], 10, 20);   // top left
  expectPoint(quad.corners[1], 110, 20);  // top right
  expectPoint(quad.corners[2], 110, 40);  // bottom right
  expectPoint(quad.corners[3], 10, 40);   // bottom left
  EXPECT_DOUBLE_EQ(quad.textHeight, 20);
}

TEST(LineQuad, SkewedLineIsARotatedRectangleWithTheSameHull) {
  // A 200 x 20 line turned 5 degrees clockwise (y down), centred at (150, 100).
  const double angle = 5 * kPi / 180, c = std::cos(angle), s = std::sin(angle);
  const double w = 200 * c + 20 * s, h = 200 * s + 20 * c;
  PixelBox box{int(std::lround(150 - w / 2)), int(std::lround(100 - h / 2)),
               int(std::lround(150 + w / 2)), int(std::lround(100 + h / 2))};
  LineQuad quad = lineQuad(box, c, s);
  EXPECT_NEAR(quad.textHeight, 20, 1.5);
  // The corners are not axis-aligned: the top edge rises towards the left.
  EXPECT_LT(quad.corners[0].y, quad.corners[1].y);
  EXPECT_NEAR(quad.corners[1].y - quad.corners[0].y, 200 * s, 2);
  // Its hull is the box again.
  double minX = 1e9, maxX = -1e9, minY = 1e9, maxY = -1e9;
  for (const auto& p : quad.corners) {
    minX = std::min(minX, p.x), maxX = std::max(maxX, p.x);
    minY = std::min(minY, p.y), maxY = std::max(maxY, p.y);
  }
  EXPECT_NEAR(minX, box.left, 1e-6);
  EXPECT_NEAR(maxX, box.right, 1e-6);
  EXPECT_NEAR(minY, box.top, 1e-6);
  EXPECT_NEAR(maxY, box.bottom, 1e-6);
}

TEST(LineQuad, DownwardReadingLineHasItsTopToTheRight) {
  // Text turned a quarter clockwise reads downwards; its top faces right.
  LineQuad quad = lineQuad({50, 10, 70, 210}, 0, 1);
  expectPoint(quad.corners[0], 70, 10);   // top left
  expectPoint(quad.corners[1], 70, 210);  // top right
  expectPoint(quad.corners[3], 50, 10);   // bottom left
  EXPECT_DOUBLE_EQ(quad.textHeight, 20);
}

TEST(LineQuad, ImpossibleOrDiagonalDirectionFallsBackToTheBox) {
  LineQuad diagonal = lineQuad({0, 0, 100, 100}, 1, 1);
  for (const auto& p : diagonal.corners) {
    EXPECT_TRUE(p.x == 0 || p.x == 100);
    EXPECT_TRUE(p.y == 0 || p.y == 100);
  }
  // A slope too steep for a box this flat: the box, read left to right.
  LineQuad flat = lineQuad({0, 0, 300, 10}, 1, 0.3);
  expectPoint(flat.corners[0], 0, 0);
  expectPoint(flat.corners[2], 300, 10);
  LineQuad none = lineQuad({0, 0, 300, 10}, 0, 0);
  expectPoint(none.corners[0], 0, 0);
}

TEST(OriginalBottomLeft, UndoesEachQuarterTurn) {
  // Original 400 x 200; its top-left pixel corner is (0, 0) = bottom-left (0, 1).
  const ImageFrame up = ImageFrame::whole(400, 200);
  ImageFrame cw = up, half = up, ccw = up;
  cw.quarterTurns = 1, half.quarterTurns = 2, ccw.quarterTurns = 3;
  auto expect = [](BottomLeftPoint p, double x, double y) {
    EXPECT_NEAR(p.x, x, 1e-12);
    EXPECT_NEAR(p.y, y, 1e-12);
  };
  expect(originalBottomLeft({0, 0}, up), 0, 1);
  expect(originalBottomLeft({400, 200}, up), 1, 0);
  // Turned clockwise (200 x 400): the original top-left went to the top right.
  expect(originalBottomLeft({200, 0}, cw), 0, 1);
  expect(originalBottomLeft({0, 400}, cw), 1, 0);
  // Half a turn: corners swap diagonally.
  expect(originalBottomLeft({400, 200}, half), 0, 1);
  // Turned against the clock: the original top-left went to the bottom left.
  expect(originalBottomLeft({0, 400}, ccw), 0, 1);
  expect(originalBottomLeft({200, 0}, ccw), 1, 0);
}

TEST(OriginalBottomLeft, ATurnedLineStaysInsideThePage) {
  ImageFrame cw = ImageFrame::whole(400, 200);
  cw.quarterTurns = 1;
  LineQuad quad = lineQuad({20, 30, 180, 60}, 1, 0);  // in the 200 x 400 turned image
  std::vector<BottomLeftPoint> corners;
  for (const auto& p : quad.corners) corners.push_back(originalBottomLeft(p, cw));
  BBox box = Geometry::bboxTopLeft(corners);
  EXPECT_NEAR(box.x, 30.0 / 400, 1e-12);
  EXPECT_NEAR(box.w, 30.0 / 400, 1e-12);
  EXPECT_NEAR(box.y, 20.0 / 200, 1e-12);
  EXPECT_NEAR(box.h, 160.0 / 200, 1e-12);
}

TEST(OriginalBottomLeft, UndoesCropAndScale) {
  // A 200 x 100 crop at (100, 50) of a 1000 x 500 original, recognised at half size.
  ImageFrame frame{0, 100, 50, 200, 100, 0.5, 1000, 500};
  BottomLeftPoint p = originalBottomLeft({0, 0}, frame);
  EXPECT_NEAR(p.x, 0.1, 1e-12);
  EXPECT_NEAR(p.y, 0.9, 1e-12);
  p = originalBottomLeft({100, 50}, frame);  // the crop's far corner
  EXPECT_NEAR(p.x, 0.3, 1e-12);
  EXPECT_NEAR(p.y, 0.7, 1e-12);
  // The same crop turned half a turn: its recognised top-left is the crop's far corner.
  frame.quarterTurns = 2;
  p = originalBottomLeft({0, 0}, frame);
  EXPECT_NEAR(p.x, 0.3, 1e-12);
  EXPECT_NEAR(p.y, 0.7, 1e-12);
}

TEST(TurnedPartFrame, APointOfAPartMapsWhereTheSamePointOfTheWholeDoes) {
  // A 300 x 180 crop at (40, 20) of a 1000 x 600 original, recognised at 0.8 and turned: every
  // part of the turned image, read on its own, maps its points where the whole image does.
  for (int turns = 0; turns < 4; ++turns) {
    const ImageFrame page{turns, 40, 20, 300, 180, 0.8, 1000, 600};
    const int turnedWidth = turns % 2 ? 144 : 240, turnedHeight = turns % 2 ? 240 : 144;
    for (const PixelBox& box :
         {PixelBox{0, 0, turnedWidth, 100}, PixelBox{0, 100, turnedWidth, turnedHeight},
          PixelBox{0, 0, 60, turnedHeight}, PixelBox{60, 10, 130, 90}}) {
      const ImageFrame part = turnedPartFrame(page, box);
      EXPECT_EQ(part.quarterTurns, turns);
      for (const PixelPoint& p :
           {PixelPoint{0, 0}, PixelPoint{3.5, 7.25}, PixelPoint{50, 2},
            PixelPoint{double(box.right - box.left), double(box.bottom - box.top)}}) {
        const BottomLeftPoint inPart = originalBottomLeft(p, part);
        const BottomLeftPoint inPage = originalBottomLeft({p.x + box.left, p.y + box.top}, page);
        EXPECT_NEAR(inPart.x, inPage.x, 1e-12) << turns << " turns";
        EXPECT_NEAR(inPart.y, inPage.y, 1e-12) << turns << " turns";
      }
    }
  }
}

TEST(TurnedPartFrame, TheLowerHalfOfAPageUpsideDownIsTheUpperHalfOfTheOriginal) {
  ImageFrame half = ImageFrame::whole(400, 200);
  half.quarterTurns = 2;
  const ImageFrame part = turnedPartFrame(half, {0, 100, 400, 200});
  EXPECT_DOUBLE_EQ(part.left, 0);
  EXPECT_DOUBLE_EQ(part.top, 0);
  EXPECT_DOUBLE_EQ(part.width, 400);
  EXPECT_DOUBLE_EQ(part.height, 100);
}

}  // namespace
}  // namespace tallowbrook::VisionOCR
