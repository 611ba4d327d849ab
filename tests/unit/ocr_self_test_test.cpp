#include "ocr/self_test.h"

#include <gtest/gtest.h>

#include "stdout_capture.h"

namespace tallowbrook::Geometry {
namespace {

// A conversion that forgets to flip: y = minY.
BBox unflipped(const std::vector<BottomLeftPoint>& corners) {
  BBox b = bboxTopLeft(corners);
  b.y = 1 - b.y - b.h;
  return b;
}

// A conversion that takes only the first and third corner, not the hull.
BBox diagonalOnly(const std::vector<BottomLeftPoint>& corners) {
  return bboxTopLeft({corners[0], corners[2]});
}

// A flip that forgets the height: y = 1 - y.
BBox flipWithoutHeight(const BBox& r) {
  return {r.x, 1 - r.y, r.w, r.h};
}

// A "flip" that only shifts the box down by its height.
BBox shiftDown(const BBox& r) {
  return {r.x, r.y + r.h, r.w, r.h};
}

TEST(SelfTestFailures, CorrectGeometryPassesEveryCheck) {
  EXPECT_TRUE(selfTestFailures().empty());
}

TEST(SelfTestFailures, UnflippedConversionIsCaughtInCheckOrder) {
  EXPECT_EQ(selfTestFailures({unflipped, flippedVertically}),
            (std::vector<std::string>{
                "a top-of-page line must get a SMALL y (1 - 0.95)",
                "a top-of-page line must land in the top half",
                "a bottom-of-page line must get a LARGE y (1 - 0.10)",
                "a bottom-of-page line must land in the bottom half",
                "after conversion line 1 must be above line 2 must be above line 3",
                "y was passed through UNFLIPPED",
                "unflipped-guard value",
                "a rotated quad must use the axis-aligned hull",
            }));
}

TEST(SelfTestFailures, NonHullConversionIsCaught) {
  EXPECT_EQ(selfTestFailures({diagonalOnly, flippedVertically}),
            std::vector<std::string>{"a rotated quad must use the axis-aligned hull"});
}

TEST(SelfTestFailures, WrongRectangleFlipsAreCaught) {
  EXPECT_EQ(selfTestFailures({bboxTopLeft, flipWithoutHeight}),
            std::vector<std::string>{"a full-page rect maps to the unit square"});
  EXPECT_EQ(selfTestFailures({bboxTopLeft, shiftDown}),
            (std::vector<std::string>{"the flip must be its own inverse",
                                      "a full-page rect maps to the unit square"}));
}

TEST(SelfTestReport, HasFixedCheckCountAndFailureList) {
  EXPECT_EQ(serializeJson(selfTestReport({})),
            R"({"type":"vision-ocr-selftest","checks":14,"failed":0,"failures":[]})");
  EXPECT_EQ(selfTestReport({"top-of-page x/w", "top-of-page height"}),
            (Json{{"type", "vision-ocr-selftest"},
                  {"checks", 14},
                  {"failed", 2},
                  {"failures", {"top-of-page x/w", "top-of-page height"}}}));
}

TEST(SelfTest, ReturnsAfterPrintingWhenAllChecksPass) {
  StdoutCapture capture;
  selfTest();
  EXPECT_EQ(capture.text(), R"({"type":"vision-ocr-selftest","checks":14,"failed":0,"failures":[]})"
                            "\n");
}

TEST(SelfTestDeathTest, ExitsWithStatusOneWhenACheckFails) {
  StdoutCapture capture;
  EXPECT_EXIT(selfTest({diagonalOnly, flippedVertically}), testing::ExitedWithCode(1), "");
  EXPECT_EQ(
      capture.text(),
      "{\"type\":\"vision-ocr-selftest\",\"checks\":14,\"failed\":1,\"failures\":[\"a rotated "
      "quad must use the axis-aligned hull\"]}\n");
}

}  // namespace
}  // namespace tallowbrook::Geometry
