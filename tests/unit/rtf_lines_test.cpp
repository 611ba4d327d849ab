#include "documents/rtf_lines.h"

#include <gtest/gtest.h>

namespace tallowbrook::rtf {
namespace {

using Lines = std::vector<std::string>;

TEST(RtfLines, EveryNewlineCharacterSeparates) {
  EXPECT_EQ(splitLines("a\nb\rc\r\nd\ve\ff\u0085g\u2028h\u2029i"),
            (Lines{"a", "b", "c", "d", "e", "f", "g", "h", "i"}));
}

TEST(RtfLines, BlankLinesGiveNothing) {
  EXPECT_EQ(splitLines("\n\n  \n\t\t\n\u00a0\u3000\n"), Lines{});
  EXPECT_EQ(splitLines(""), Lines{});
}

TEST(RtfLines, IndentationIsRemovedAndInnerSpacingKept) {
  EXPECT_EQ(splitLines("\t  two  words\t \n\u2003x\u00a0 y\u202f"),
            (Lines{"two  words", "x\u00a0 y"}));
}

TEST(RtfLines, OtherCharactersAreNotBlanks) {
  // Zero-width space (not a space separator) and a control character stay.
  EXPECT_EQ(splitLines("\u200bx\u200b"), Lines{"\u200bx\u200b"});
}

TEST(RtfLines, MalformedUtf8StaysInsideItsLine) {
  EXPECT_EQ(splitLines("a\xff"
                       "b\n\xe2\x80"),
            (Lines{"a\xff"
                   "b",
                   "\xe2\x80"}));
}

TEST(RtfLines, SeparatorAndBlankSets) {
  for (char32_t c : {0x0Au, 0x0Bu, 0x0Cu, 0x0Du, 0x85u, 0x2028u, 0x2029u}) {
    EXPECT_TRUE(isLineSeparator(c)) << uint32_t(c);
    EXPECT_FALSE(isBlank(c)) << uint32_t(c);
  }
  for (char32_t c : {0x09u, 0x20u, 0xA0u, 0x1680u, 0x2000u, 0x200Au, 0x202Fu, 0x205Fu, 0x3000u}) {
    EXPECT_TRUE(isBlank(c)) << uint32_t(c);
    EXPECT_FALSE(isLineSeparator(c)) << uint32_t(c);
  }
  EXPECT_FALSE(isBlank(0x200B));
  EXPECT_FALSE(isBlank('a'));
}

}  // namespace
}  // namespace tallowbrook::rtf
