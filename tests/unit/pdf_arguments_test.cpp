// The argument rules pdf-page and pdf-text share.
#include "documents/pdf_arguments.h"

#include <gtest/gtest.h>

namespace tallowbrook::Pdf {
namespace {

TEST(ParseInteger, AcceptsDigitsWithAnOptionalSign) {
  EXPECT_EQ(parseInteger("12"), 12);
  EXPECT_EQ(parseInteger("+12"), 12);
  EXPECT_EQ(parseInteger("-3"), -3);
  EXPECT_EQ(parseInteger("007"), 7);
  EXPECT_EQ(parseInteger("9223372036854775807"), INT64_MAX);
  EXPECT_EQ(parseInteger("-9223372036854775808"), INT64_MIN);
}

TEST(ParseInteger, RefusesAnythingElse) {
  for (const char* word : {"", "+", "-", "two", "1.0", " 1", "1 ", "1e3", "0x10", "+-1", "١",
                           "9223372036854775808", "-9223372036854775809"}) {
    EXPECT_FALSE(parseInteger(word)) << word;
  }
}

TEST(ParsePageNumber, OneOrMore) {
  EXPECT_EQ(parsePageNumber("1"), 1);
  EXPECT_EQ(parsePageNumber("+4"), 4);
  EXPECT_FALSE(parsePageNumber("0"));
  EXPECT_FALSE(parsePageNumber("-3"));
  EXPECT_FALSE(parsePageNumber("two"));
}

TEST(DrawableSize, OneToEightThousand) {
  EXPECT_TRUE(drawableSize(1));
  EXPECT_TRUE(drawableSize(1404));
  EXPECT_TRUE(drawableSize(8000));
  EXPECT_FALSE(drawableSize(8001));
  EXPECT_FALSE(drawableSize(0));
  EXPECT_FALSE(drawableSize(-1));
  EXPECT_FALSE(drawableSize(INT64_MIN));
  EXPECT_FALSE(drawableSize(INT64_MAX));
}

}  // namespace
}  // namespace tallowbrook::Pdf
