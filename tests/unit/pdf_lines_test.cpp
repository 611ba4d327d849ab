// Rebuilding visual lines from characters and their boxes.
#include "documents/pdf_lines.h"

#include <gtest/gtest.h>

#include "documents/pdf_characters.h"

namespace tallowbrook::PdfText {
namespace {

using Pdf::Rect;

// A glyph box 10 points high whose vertical centre is at `midY`.
Rect glyph(double x, double midY, double height = 10, double width = 6) {
  return Rect{x, midY - height / 2, width, height};
}

TEST(SplitCharacters, OneCharacterPerCodePoint) {
  auto characters = Pdf::splitCharacters("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\r\n");
  ASSERT_EQ(characters.size(), 6u);
  EXPECT_EQ(characters[1], "\xC3\xA9");
  EXPECT_EQ(characters[2], "\xE2\x82\xAC");
  EXPECT_EQ(characters[3], "\xF0\x9F\x98\x80");
  EXPECT_EQ(characters[4], "\r");
  EXPECT_EQ(characters[5], "\n");
}

TEST(SplitCharacters, StrayBytesStandAlone) {
  auto characters = Pdf::splitCharacters(
      "\xFF"
      "a\xC3");
  ASSERT_EQ(characters.size(), 3u);
  EXPECT_EQ(characters[0], "\xFF");
  EXPECT_EQ(characters[2], "\xC3");
}

TEST(Trimmed, RemovesWhiteSpaceAndLineBreaksAtBothEnds) {
  EXPECT_EQ(Pdf::trimmed("  \t a b \r\n"), "a b");
  EXPECT_EQ(Pdf::trimmed("\xC2\xA0x\xE3\x80\x80"), "x");  // no-break and ideographic spaces
  EXPECT_EQ(Pdf::trimmed("\xE2\x80\xA8x\xC2\x85"), "x");  // line separator, next line
  EXPECT_EQ(Pdf::trimmed("   "), "");
  EXPECT_EQ(Pdf::trimmed("\xE2\x80\x8Bx"), "\xE2\x80\x8Bx");  // zero-width space is not trimmed
}

TEST(LineBuilder, CentresExactlyHalfTheSmallerHeightApartShareALine) {
  LineBuilder builder;
  builder.add("a", glyph(0, 100));
  builder.add("b", glyph(10, 105));  // 5 = 0.5 x 10
  builder.flush();
  ASSERT_EQ(builder.lines().size(), 1u);
  EXPECT_EQ(builder.lines()[0].text, "ab");
  EXPECT_DOUBLE_EQ(builder.lines()[0].box.minY(), 95);
  EXPECT_DOUBLE_EQ(builder.lines()[0].box.maxY(), 110);
  EXPECT_DOUBLE_EQ(builder.lines()[0].box.maxX(), 16);
}

TEST(LineBuilder, AHairMoreStartsANewLine) {
  LineBuilder builder;
  builder.add("a", glyph(0, 100));
  builder.add("b", glyph(10, 105.0001));
  builder.flush();
  ASSERT_EQ(builder.lines().size(), 2u);
  EXPECT_EQ(builder.lines()[0].text, "a");
  EXPECT_EQ(builder.lines()[1].text, "b");
}

TEST(LineBuilder, TheToleranceUsesTheSmallerHeight) {
  LineBuilder builder;
  builder.add("H", glyph(0, 100, 20));
  builder.add("2", glyph(20, 106, 4));  // 6 > 0.5 x 4: a superscript starts its own line
  builder.add("x", glyph(30, 101, 4));  // back near its centre: 5 > 2 still apart
  builder.flush();
  ASSERT_EQ(builder.lines().size(), 3u);
  EXPECT_EQ(builder.lines()[1].text, "2");
}

TEST(LineBuilder, ZeroSizeBoxesJoinTheTextWithoutMovingTheBox) {
  LineBuilder builder;
  builder.add(" ", Rect{});
  builder.add("a", glyph(100, 100));
  builder.add(" ", Rect{500, 500, 0, 0});
  builder.add("b", glyph(120, 100));
  builder.add(" ", Rect{900, 100, 10, 0});
  builder.flush();
  ASSERT_EQ(builder.lines().size(), 1u);
  EXPECT_EQ(builder.lines()[0].text, "a b");
  EXPECT_DOUBLE_EQ(builder.lines()[0].box.minX(), 100);
  EXPECT_DOUBLE_EQ(builder.lines()[0].box.maxX(), 126);
}

TEST(LineBuilder, LineBreakCharactersCloseTheLine) {
  LineBuilder builder;
  builder.add("a", glyph(0, 100));
  builder.add("\n", glyph(6, 100));
  builder.add("b", glyph(10, 100));
  builder.add("\r", Rect{});
  builder.add("c", glyph(20, 100));
  builder.flush();
  ASSERT_EQ(builder.lines().size(), 3u);
  EXPECT_EQ(builder.lines()[2].text, "c");
}

TEST(LineBuilder, ALineOfSpacesOrWithoutABoxIsDropped) {
  LineBuilder builder;
  builder.add(" ", glyph(0, 100));  // a space with a box: kept only if text remains
  builder.add(" ", glyph(6, 100));
  builder.flush();
  builder.add("x", Rect{});  // text without any box
  builder.flush();
  EXPECT_TRUE(builder.lines().empty());
}

TEST(BuildLines, ReadsOnlyCharactersThatHaveABox) {
  Pdf::PageText text;
  text.text = "ab\ncd";
  text.boxes = {glyph(0, 100), glyph(6, 100), Rect{}, glyph(0, 80)};
  auto lines = buildLines(text);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[1].text, "c");
}

TEST(LineObject, NormalisedToTheCropBoxFromTheTopLeft) {
  Rect crop{50, 100, 500, 700};
  Line top{"top", Rect{50, 780, 100, 20}};
  Json t = lineObject(top, crop);
  EXPECT_EQ(t["text"], "top");
  EXPECT_DOUBLE_EQ(t["x"].get<double>(), 0);
  EXPECT_DOUBLE_EQ(t["y"].get<double>(), 0);
  EXPECT_DOUBLE_EQ(t["w"].get<double>(), 0.2);
  EXPECT_DOUBLE_EQ(t["h"].get<double>(), 20.0 / 700);
  Line bottom{"bottom", Rect{300, 100, 50, 35}};
  Json b = lineObject(bottom, crop);
  EXPECT_DOUBLE_EQ(b["y"].get<double>() + b["h"].get<double>(), 1);
  EXPECT_DOUBLE_EQ(b["x"].get<double>(), 0.5);
}

TEST(LineObject, ValuesOutsideTheCropBoxAreNotClamped) {
  Rect crop{0, 0, 100, 100};
  Json j = lineObject(Line{"out", Rect{-10, 95, 130, 10}}, crop);
  EXPECT_DOUBLE_EQ(j["x"].get<double>(), -0.1);
  EXPECT_DOUBLE_EQ(j["y"].get<double>(), -0.05);
  EXPECT_DOUBLE_EQ(j["w"].get<double>(), 1.3);
}

}  // namespace
}  // namespace tallowbrook::PdfText
