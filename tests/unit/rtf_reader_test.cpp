#include "documents/rtf_reader.h"

#include <gtest/gtest.h>

#include <string>

#include "documents/rtf_control_words.h"
#include "documents/rtf_group_state.h"

namespace tallowbrook::rtf {
namespace {

std::string text(std::string_view body) {
  return readText(body);
}
std::string doc(std::string_view body) {
  return readText("{\\rtf1\\ansi " + std::string(body) + "}");
}

TEST(RtfReader, RecognisesTheRtfSignature) {
  EXPECT_TRUE(looksLikeRtf("{\\rtf1 x}"));
  EXPECT_TRUE(looksLikeRtf("{\\rtf"));
  EXPECT_TRUE(looksLikeRtf("\xEF\xBB\xBF{\\rtf1}"));
  EXPECT_TRUE(looksLikeRtf(" \r\n\t{\\rtf1}"));
  EXPECT_FALSE(looksLikeRtf(""));
  EXPECT_FALSE(looksLikeRtf("{\\rt"));
  EXPECT_FALSE(looksLikeRtf("/{\\rtf1}"));
  EXPECT_FALSE(looksLikeRtf("{\\RTF1}"));
  EXPECT_FALSE(looksLikeRtf("%PDF-1.4"));
}

TEST(RtfReader, ControlWordTable) {
  EXPECT_TRUE(controlWordTableIsConsistent());
  EXPECT_EQ(lookupControlWord("par").action, WordAction::Paragraph);
  EXPECT_EQ(lookupControlWord("emdash").character, U'\u2014');
  EXPECT_EQ(lookupControlWord("pard").action, WordAction::Ignore);
  EXPECT_EQ(lookupControlWord("").action, WordAction::Ignore);
  EXPECT_EQ(lookupControlWord("Par").action, WordAction::Ignore);
}

TEST(RtfReader, PlainText) {
  EXPECT_EQ(doc("Hello, world."), "Hello, world.");
}

TEST(RtfReader, ParagraphsLinesSectionsPagesAndTabs) {
  EXPECT_EQ(doc("a\\par b\\line c\\sect d\\page e\\tab f\\lbr2 g"), "a\nb\u2028c\nd\fe\tf\u2028g");
}

TEST(RtfReader, EscapedNewlineIsAParagraph) {
  EXPECT_EQ(doc("a\\\nb"), "a\nb");
}

TEST(RtfReader, RawLineEndsAreNotText) {
  EXPECT_EQ(doc("one\r\ntwo"), "onetwo");
}

TEST(RtfReader, SpecialCharacters) {
  EXPECT_EQ(doc("\\emdash\\endash\\bullet\\lquote\\rquote\\ldblquote\\rdblquote"),
            "\u2014\u2013\u2022\u2018\u2019\u201c\u201d");
  EXPECT_EQ(doc("a\\~b\\_c\\-d"), "a\u00a0b\u2011cd");
  EXPECT_EQ(doc("\\{x\\}\\\\"), "{x}\\");
  EXPECT_EQ(doc("\\emspace\\enspace\\qmspace\\zwj\\zwnj\\ltrmark\\rtlmark"),
            "\u2003\u2002\u2005\u200d\u200c\u200e\u200f");
}

TEST(RtfReader, DocumentCodePage) {
  EXPECT_EQ(text("{\\rtf1\\ansi\\ansicpg1250 \\'8a}"), "\u0160");
  EXPECT_EQ(text("{\\rtf1\\ansi\\ansicpg1251 \\'cf}"), "\u041f");
  EXPECT_EQ(text("{\\rtf1\\ansi \\'e9}"), "\u00e9");
  EXPECT_EQ(text("{\\rtf1\\mac \\'8e}"), "\u00e9");
  EXPECT_EQ(text("{\\rtf1\\pc \\'82}"), "\u00e9");
  EXPECT_EQ(text("{\\rtf1\\ansi\\ansicpg0 \\'e9}"), "\u00e9");  // no code page: 1252
}

TEST(RtfReader, RawHighBytesUseTheCodePageToo) {
  EXPECT_EQ(text("{\\rtf1\\ansi\\ansicpg1251 \xcf}"), "\u041f");
}

TEST(RtfReader, FontCharsetsChooseTheCodePage) {
  const std::string fonts =
      "{\\rtf1\\ansi\\ansicpg1252\\deff0{\\fonttbl{\\f0\\froman Times;}"
      "{\\f1\\fnil\\fcharset128 MS Mincho;}{\\f2\\fcharset204 Arial Cyr;}"
      "{\\f3\\fcharset238\\cpg1251 Both;}}";
  EXPECT_EQ(text(fonts + "\\'e9{\\f1 \\'93\\'fa\\'96\\'7b}\\'e9}"), "\u00e9\u65e5\u672c\u00e9");
  EXPECT_EQ(text(fonts + "{\\f2 \\'cf}}"), "\u041f");
  EXPECT_EQ(text(fonts + "{\\f3 \\'cf}}"), "\u041f");  // \cpg wins over the charset
  // The font table's names are not text.
  EXPECT_EQ(text(fonts + "}"), "");
}

TEST(RtfReader, DefaultFontCharsetAppliesWithoutF) {
  EXPECT_EQ(text("{\\rtf1\\ansi\\deff1{\\fonttbl{\\f1\\fcharset238 CE;}}\\'8a}"), "\u0160");
  EXPECT_EQ(text("{\\rtf1\\ansi\\deff1{\\fonttbl{\\f1\\fcharset238 CE;}}{\\f5\\'8a}\\plain\\'8a}"),
            "\u0160\u0160");
}

TEST(RtfReader, FlatFontTable) {
  EXPECT_EQ(text("{\\rtf1\\ansi{\\fonttbl\\f0\\fswiss Helvetica;\\f1\\fcharset204 Cyr;}"
                 "\\f1 \\'cf}"),
            "\u041f");
}

TEST(RtfReader, DoubleByteCharactersSplitAcrossHexEscapes) {
  EXPECT_EQ(text("{\\rtf1\\ansi\\ansicpg936 \\'d6\\'d0\\'ce\\'c4}"), "\u4e2d\u6587");
  EXPECT_EQ(text("{\\rtf1\\ansi\\ansicpg950 \\'a4\\'a4}"), "\u4e2d");
  EXPECT_EQ(text("{\\rtf1\\ansi\\ansicpg949 \\'c7\\'d1}"), "\ud55c");
}

TEST(RtfReader, UnicodeWithFallback) {
  EXPECT_EQ(doc("caf\\u233?s"), "caf\u00e9s");
  EXPECT_EQ(doc("\\u8212\\'97x"), "\u2014x");  // the fallback is a \'hh
  EXPECT_EQ(doc("\\uc2\\u8212--x"), "\u2014x");
  EXPECT_EQ(doc("\\uc0\\u8212-x"), "\u2014-x");
  EXPECT_EQ(doc("\\uc2\\u8212\\'97\\'97x"), "\u2014x");
}

TEST(RtfReader, UnicodeSkipCountIsScopedToItsGroup) {
  EXPECT_EQ(doc("{\\uc2 \\u233??}\\u233?x"), "\u00e9\u00e9x");
}

TEST(RtfReader, UnicodeFallbackEndsAtAGroupBoundary) {
  EXPECT_EQ(doc("\\uc3\\u233{x}y"), "\u00e9xy");
}

TEST(RtfReader, NegativeUnicodeValues) {
  EXPECT_EQ(doc("\\u-3913?"), "\uf0b7");
  EXPECT_EQ(doc("\\u-4064?"), "\uf020");
}

TEST(RtfReader, SurrogatePairs) {
  EXPECT_EQ(doc("\\u-10179?\\u-8704?"), "\U0001f600");
  EXPECT_EQ(doc("\\u55357?\\u56832?"), "\U0001f600");
  EXPECT_EQ(doc("\\u-10179?x"), "\ufffdx");  // a lone high surrogate
  EXPECT_EQ(doc("\\u-8704?x"), "\ufffdx");   // a lone low surrogate
}

TEST(RtfReader, IgnorableDestinationsAreSkipped) {
  EXPECT_EQ(doc("a{\\*\\unknownthing secret {nested} text}b"), "ab");
  EXPECT_EQ(doc("a{\\*\\bkmkstart mark}b"), "ab");
}

TEST(RtfReader, UnknownDestinationsWithoutStarAreText) {
  EXPECT_EQ(doc("a{\\unknownthing visible}b"), "avisibleb");
}

TEST(RtfReader, KnownNonTextDestinations) {
  for (const char* word : {"fonttbl",      "colortbl",
                           "stylesheet",   "info",
                           "pict",         "objdata",
                           "header",       "footer",
                           "headerl",      "footerr",
                           "themedata",    "datastore",
                           "listtable",    "listoverridetable",
                           "latentstyles", "footnote",
                           "annotation",   "xe",
                           "tc",           "nonshppict",
                           "nonesttables", "pn"}) {
    EXPECT_EQ(doc(std::string("a{\\") + word + " not text {inner}}b"), "ab") << word;
  }
}

TEST(RtfReader, PictureDataIsNotText) {
  EXPECT_EQ(doc("a{\\pict\\pngblip 89504e470d0a}b"), "ab");
  EXPECT_EQ(doc("a{\\*\\shppict{\\pict\\wmetafile8 0100}}{\\nonshppict{\\pict 01}}b"), "ab");
}

TEST(RtfReader, ObjectsKeepTheirResult) {
  EXPECT_EQ(doc("{\\object\\objemb{\\*\\objclass Excel}{\\*\\objdata 0105}{\\result shown}}"),
            "shown");
}

TEST(RtfReader, FieldsKeepTheResultAndDropTheInstruction) {
  EXPECT_EQ(doc("see {\\field{\\*\\fldinst HYPERLINK \"http://x\"}{\\fldrslt the site}} now"),
            "see the site now");
  EXPECT_EQ(doc("{\\field{\\fldinst PAGE}{\\fldrslt 3}}"), "3");
  EXPECT_EQ(doc("{\\field{\\*\\fldinst NUMPAGES}}x"), "x");
}

TEST(RtfReader, BinaryDataIsNotText) {
  std::string body = "a{\\pict\\bin5 }}}{{}b";
  EXPECT_EQ(doc(body), "ab");
  EXPECT_EQ(doc("a\\bin3 xyzb"), "ab");
}

TEST(RtfReader, HugeBinaryLength) {
  EXPECT_EQ(doc("a\\bin1000000000 rest"), "a");
  EXPECT_EQ(doc("a\\bin2147483647999 rest"), "a");
}

TEST(RtfReader, TableCellsEachOnTheirOwnLine) {
  EXPECT_EQ(doc("\\trowd\\cellx1000\\cellx2000\\intbl A\\cell B\\cell\\row After\\par"),
            "A\nB\n\nAfter\n");
}

TEST(RtfReader, NestedTables) {
  EXPECT_EQ(doc("\\intbl\\itap2 x\\nestcell y\\nestcell{\\*\\nesttableprops\\nestrow}"
                "{\\nonesttables fallback}\\itap1 z\\cell\\row"),
            "x\ny\n\nz\n\n");
}

TEST(RtfReader, NestedTableCellsWrittenInsideTheirProperties) {
  EXPECT_EQ(doc("{\\*\\nesttableprops\\trowd\\cellx100 inner\\nestcell\\nestrow}"), "inner\n\n");
}

TEST(RtfReader, FootnotesAreDroppedAndAnchorsNumbered) {
  EXPECT_EQ(doc("One\\chftn{\\footnote{\\chftn} first note} two\\chftn{\\footnote second}."),
            "One1 two2.");
}

TEST(RtfReader, HiddenText) {
  EXPECT_EQ(doc("a{\\v hidden}b\\v c\\v0 d"), "abd");
  EXPECT_EQ(doc("\\v x\\plain y"), "y");
}

TEST(RtfReader, ListLabelsAreText) {
  EXPECT_EQ(doc("{\\listtext 1.\\tab}One\\par{\\pntext\\f1 \\'b7\\tab}Two"),
            "1.\tOne\n\u00b7\tTwo");
}

TEST(RtfReader, UprTakesTheAnsiVersion) {
  EXPECT_EQ(doc("{\\upr{ansi}{\\*\\ud{unicode}}}"), "ansi");
}

TEST(RtfReader, TextAfterTheDocumentIsNotRead) {
  EXPECT_EQ(text("{\\rtf1 first}{\\rtf1 second}"), "first");
  EXPECT_EQ(text("{\\rtf1 a}}}} b"), "a");
}

TEST(RtfReader, UnbalancedBraces) {
  EXPECT_EQ(text("{\\rtf1 a{b{c"), "abc");
  EXPECT_EQ(text("{\\rtf1 a{\\fonttbl x"), "a");
}

TEST(RtfReader, NulAndControlBytesAreDropped) {
  EXPECT_EQ(doc(std::string("a\0b\x01"
                            "c\td",
                            7)),
            "abc\td");
}

TEST(RtfReader, AMillionNestedGroups) {
  const size_t depth = 1000000;
  std::string input = "{\\rtf1 ";
  input.append(depth, '{');
  input += "deep";
  input.append(depth, '}');
  input += " after}";
  EXPECT_EQ(text(input), "deep after");
}

TEST(RtfReader, DeepGroupsDoNotLeakSkippingOutward) {
  std::string input = "{\\rtf1 ";
  input.append(GroupStack::kMaxDepth + 10, '{');
  input += "\\v x";
  input.append(GroupStack::kMaxDepth + 10, '}');
  input += "y}";
  EXPECT_EQ(text(input), "y");
}

TEST(RtfReader, EveryPrefixOfADocumentReads) {
  const std::string input =
      "{\\rtf1\\ansi\\ansicpg1252{\\fonttbl{\\f1\\fcharset128 M;}}{\\info{\\title t}}"
      "caf\\'e9 {\\f1 \\'93\\'fa}\\u-10179?\\u-8704?{\\field{\\*\\fldinst X}{\\fldrslt r}}"
      "\\bin4 ab{}\\trowd\\intbl c\\cell\\row\\par}";
  const std::string whole = text(input);
  EXPECT_EQ(whole, "caf\u00e9 \u65e5\U0001f600rc\n\n\n");
  for (size_t n = 0; n <= input.size(); ++n) {
    const std::string part = text(std::string_view(input).substr(0, n));
    EXPECT_LE(part.size(), whole.size() + 3) << n;  // + a U+FFFD for a cut surrogate pair
  }
}

}  // namespace
}  // namespace tallowbrook::rtf
