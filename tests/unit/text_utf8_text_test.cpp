#include "text/utf8_text.h"

#include <gtest/gtest.h>

namespace tallowbrook {
namespace {

const std::string kReplacement = "\xEF\xBF\xBD";

TEST(Utf8Text, WellFormedText) {
  EXPECT_TRUE(isValidUtf8(""));
  EXPECT_TRUE(isValidUtf8("plain ascii"));
  EXPECT_TRUE(
      isValidUtf8("Gr\xC3\xBC\xC3\x9F"
                  "e \xE2\x86\x92 \xF0\x9F\x8E\x89"));
  EXPECT_TRUE(isValidUtf8(std::string("\0", 1)));
  EXPECT_TRUE(isValidUtf8("\xF4\x8F\xBF\xBF"));  // U+10FFFF
  EXPECT_TRUE(isValidUtf8("\xED\x9F\xBF"));      // U+D7FF
}

TEST(Utf8Text, IllFormedText) {
  for (const char* bytes :
       {"\xff", "\xC0\xAF", "\xC1\xBF", "\xE0\x80\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80",
        "\xF5\x80\x80\x80", "\xC3", "\xE2\x86", "\x80", "a\xC3(b"}) {
    EXPECT_FALSE(isValidUtf8(bytes)) << bytes;
  }
}

TEST(Utf8Text, RepairLeavesWellFormedTextAlone) {
  EXPECT_EQ(repairUtf8("Gr\xC3\xBC\xC3\x9F"
                       "e"),
            "Gr\xC3\xBC\xC3\x9F"
            "e");
}

TEST(Utf8Text, RepairReplacesEachMaximalIllFormedPart) {
  EXPECT_EQ(repairUtf8("a\xffz"), "a" + kReplacement + "z");
  // A truncated three-byte sequence is one replacement.
  EXPECT_EQ(repairUtf8("a\xE2\x86z"), "a" + kReplacement + "z");
  // Overlong and surrogate forms: every byte on its own.
  EXPECT_EQ(repairUtf8("\xC0\xAF"), kReplacement + kReplacement);
  EXPECT_EQ(repairUtf8("\xED\xA0\x80"), kReplacement + kReplacement + kReplacement);
  EXPECT_EQ(repairUtf8("\xF0\x9F\x8E"), kReplacement);
  EXPECT_EQ(repairUtf8("\xF0\x9F\x8E\x89\x89"), "\xF0\x9F\x8E\x89" + kReplacement);
}

TEST(Utf8Text, RepairedTextIsAlwaysWellFormed) {
  std::string bytes;
  for (int i = 0; i < 4096; ++i) bytes.push_back(static_cast<char>((i * 7919 + 13) & 0xff));
  EXPECT_FALSE(isValidUtf8(bytes));
  EXPECT_TRUE(isValidUtf8(repairUtf8(bytes)));
}

}  // namespace
}  // namespace tallowbrook
