#include <cstdint>

#include <gtest/gtest.h>

#include "ocr/decode_budget.h"

namespace tallowbrook::VisionOCR {
namespace {

TEST(DecodeBudget, CountsThePictureAndOneCopyOfTheStoredRows) {
  // Black and white: one bit per pixel, twice.
  EXPECT_EQ(decodeBytes({20000, 20000, 1, 1, false}), 2 * 50'000'000);
  // Grey: one byte, twice. Colour: four bytes decoded plus three stored.
  EXPECT_EQ(decodeBytes({1000, 1000, 8, 1, false}), 2'000'000);
  EXPECT_EQ(decodeBytes({1000, 1000, 8, 3, false}), 7'000'000);
  EXPECT_EQ(decodeBytes({1000, 1000, 8, 4, false}), 8'000'000);
  // A colour map decodes to one byte a pixel.
  EXPECT_EQ(decodeBytes({1000, 1000, 4, 1, true}), 1'500'000);
}

TEST(DecodeBudget, AColourScanAt1200DpiFitsAndABombDoesNot) {
  EXPECT_LE(decodeBytes({9920, 14030, 8, 3, false}), kMaxDecodeBytes);
  EXPECT_GT(decodeBytes({60000, 60000, 8, 1, false}), kMaxDecodeBytes);
  EXPECT_EQ(decodeBytes({2'000'000'000, 2'000'000'000, 16, 4, false}), INT64_MAX);
  EXPECT_EQ(decodeBytes({0, 100, 8, 1, false}), 0);
}

}  // namespace
}  // namespace tallowbrook::VisionOCR
