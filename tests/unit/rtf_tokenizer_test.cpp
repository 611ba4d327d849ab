#include "documents/rtf_tokenizer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tallowbrook::rtf {
namespace {

std::vector<Token> tokensOf(std::string_view input) {
  Tokenizer tokenizer(input);
  std::vector<Token> tokens;
  for (Token t = tokenizer.next(); t.kind != TokenKind::End; t = tokenizer.next()) {
    tokens.push_back(t);
    if (tokens.size() > input.size() + 1) ADD_FAILURE() << "more tokens than bytes";
    if (tokens.size() > input.size() + 1) break;
  }
  return tokens;
}

TEST(RtfTokenizer, GroupsWordsAndText) {
  auto t = tokensOf("{\\rtf1\\ansi Hello}");
  ASSERT_EQ(t.size(), 5u);
  EXPECT_EQ(t[0].kind, TokenKind::GroupOpen);
  EXPECT_EQ(t[1].kind, TokenKind::ControlWord);
  EXPECT_EQ(t[1].text, "rtf");
  EXPECT_TRUE(t[1].hasParameter);
  EXPECT_EQ(t[1].parameter, 1);
  EXPECT_EQ(t[2].text, "ansi");
  EXPECT_FALSE(t[2].hasParameter);
  EXPECT_EQ(t[3].kind, TokenKind::Text);
  EXPECT_EQ(t[3].text, "Hello");  // the space after \ansi delimits it and is not text
  EXPECT_EQ(t[4].kind, TokenKind::GroupClose);
}

TEST(RtfTokenizer, NegativeAndOverlongParameters) {
  auto t = tokensOf("\\u-10179\\li99999999999999 x");
  ASSERT_EQ(t.size(), 3u);
  EXPECT_EQ(t[0].parameter, -10179);
  EXPECT_EQ(t[1].parameter, kMaxParameter);
  EXPECT_EQ(t[2].text, "x");
  auto n = tokensOf("\\li-99999999999999");
  ASSERT_EQ(n.size(), 1u);
  EXPECT_EQ(n[0].parameter, kMinParameter);
}

TEST(RtfTokenizer, OnlyOneSpaceIsTheDelimiter) {
  auto t = tokensOf("\\b  bold");
  ASSERT_EQ(t.size(), 2u);
  EXPECT_EQ(t[1].text, " bold");
}

TEST(RtfTokenizer, ADashWithoutDigitsIsNotAParameter) {
  auto t = tokensOf("\\word-x");
  ASSERT_EQ(t.size(), 2u);
  EXPECT_FALSE(t[0].hasParameter);
  EXPECT_EQ(t[1].text, "-x");
}

TEST(RtfTokenizer, SymbolsAndHexBytes) {
  auto t = tokensOf("\\{\\}\\\\\\~\\'e9\\'E9\\*");
  ASSERT_EQ(t.size(), 7u);
  EXPECT_EQ(t[0].symbol, '{');
  EXPECT_EQ(t[1].symbol, '}');
  EXPECT_EQ(t[2].symbol, '\\');
  EXPECT_EQ(t[3].symbol, '~');
  EXPECT_EQ(t[4].kind, TokenKind::HexByte);
  EXPECT_EQ(t[4].byte, 0xe9);
  EXPECT_EQ(t[5].byte, 0xe9);
  EXPECT_EQ(t[6].symbol, '*');
}

TEST(RtfTokenizer, CutOffHexBytesBecomeTheQuoteSymbol) {
  for (std::string input : {"\\'", "\\'e", "\\'zz"}) {
    auto t = tokensOf(input);
    ASSERT_FALSE(t.empty()) << input;
    EXPECT_EQ(t[0].kind, TokenKind::ControlSymbol) << input;
    EXPECT_EQ(t[0].symbol, '\'') << input;
  }
}

TEST(RtfTokenizer, LineEndsAreSkippedAndEscapedOnesArePars) {
  auto t = tokensOf("a\r\nb\\\nc\\\r");
  ASSERT_EQ(t.size(), 5u);
  EXPECT_EQ(t[0].text, "a");
  EXPECT_EQ(t[1].text, "b");
  EXPECT_EQ(t[2].symbol, '\n');
  EXPECT_EQ(t[3].text, "c");
  EXPECT_EQ(t[4].symbol, '\n');
}

TEST(RtfTokenizer, BinaryDataIsOneTokenEvenWithBraces) {
  std::string input = "\\bin4 {}\\x";
  input += "rest";
  auto t = tokensOf(input);
  ASSERT_EQ(t.size(), 2u);
  EXPECT_EQ(t[0].kind, TokenKind::Binary);
  EXPECT_EQ(t[0].text, "{}\\x");
  EXPECT_EQ(t[1].text, "rest");
}

TEST(RtfTokenizer, HugeBinaryLengthTakesWhatIsThere) {
  auto t = tokensOf("\\bin1000000000 abc");
  ASSERT_EQ(t.size(), 1u);
  EXPECT_EQ(t[0].kind, TokenKind::Binary);
  EXPECT_EQ(t[0].text, "abc");
  auto negative = tokensOf("\\bin-5 abc");
  ASSERT_EQ(negative.size(), 2u);
  EXPECT_EQ(negative[0].text, "");
  EXPECT_EQ(negative[1].text, "abc");
}

TEST(RtfTokenizer, NulBytesAreText) {
  const std::string input("a\0b", 3);  // tokens point into the input: keep it alive
  auto t = tokensOf(input);
  ASSERT_EQ(t.size(), 1u);
  EXPECT_EQ(t[0].text, std::string("a\0b", 3));
}

TEST(RtfTokenizer, EndStaysEnd) {
  Tokenizer tokenizer("\\");
  EXPECT_EQ(tokenizer.next().kind, TokenKind::End);
  EXPECT_EQ(tokenizer.next().kind, TokenKind::End);
  EXPECT_EQ(tokenizer.offset(), 1u);
}

TEST(RtfTokenizer, EveryPrefixTokenizesWithinBounds) {
  const std::string input = "{\\rtf1{\\f0\\fcharset128 x;}\\'82\\'a0\\u-3913?\\bin3 abc\\par}";
  for (size_t n = 0; n <= input.size(); ++n) {
    Tokenizer tokenizer(std::string_view(input).substr(0, n));
    size_t count = 0;
    while (tokenizer.next().kind != TokenKind::End) ++count;
    EXPECT_LE(count, n);
    EXPECT_EQ(tokenizer.offset(), n);
  }
}

}  // namespace
}  // namespace tallowbrook::rtf
