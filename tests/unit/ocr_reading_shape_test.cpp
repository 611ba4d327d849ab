#include <gtest/gtest.h>

#include "ocr/reading_shape.h"

namespace tallowbrook::VisionOCR {
namespace {

TEST(WordShape, UprightTextIsWordShaped) {
  EXPECT_DOUBLE_EQ(wordShapeShare("The archive keeps every letter."), 1.0);
  EXPECT_DOUBLE_EQ(wordShapeShare("ZVI GALIL"), 1.0);
  EXPECT_DOUBLE_EQ(wordShapeShare("Invoice total 1,250.00 on the 1st of May"), 1.0);
  EXPECT_DOUBLE_EQ(wordShapeShare("\"It's nothing.\" (well-known) re-read: 10:45"), 1.0);
}

TEST(WordShape, TextReadUpsideDownIsNot) {
  // Pieces of Tesseract's readings of lines turned half a turn.
  EXPECT_LT(wordShapeShare("JeA0 peduunl J8A0 AzZe]"), 0.5);
  EXPECT_DOUBLE_EQ(wordShapeShare("SP1OM 1Oj 8}X9}"), 0.0);
  EXPECT_DOUBLE_EQ(wordShapeShare("\u201cJeA0\u201d"), 0.0);
}

TEST(WordShape, OtherScriptsCountAsUpright) {
  EXPECT_DOUBLE_EQ(wordShapeShare("Größe und Übermaß"), 1.0);
  EXPECT_DOUBLE_EQ(wordShapeShare("שלום עולם"), 1.0);
}

TEST(WordShape, NothingToJudgeScoresZero) {
  EXPECT_DOUBLE_EQ(wordShapeShare(""), 0.0);
  EXPECT_DOUBLE_EQ(wordShapeShare(" ... --- !! "), 0.0);
}

TEST(WordShape, MixedCaseAndDigitsInsideWordsAreNotWordShaped) {
  EXPECT_DOUBLE_EQ(wordShapeShare("aBc"), 0.0);
  EXPECT_DOUBLE_EQ(wordShapeShare("a1b"), 0.0);
  EXPECT_DOUBLE_EQ(wordShapeShare("12A"), 0.0);
  // Shares weigh words by their letters and digits: 4 of 7.
  EXPECT_DOUBLE_EQ(wordShapeShare("good pQr"), 4.0 / 7.0);
}

}  // namespace
}  // namespace tallowbrook::VisionOCR
