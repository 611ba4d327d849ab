#include "documents/rtf_code_pages.h"

#include <gtest/gtest.h>
#include <iconv.h>

#include <string>

namespace tallowbrook::rtf {
namespace {

std::string decoded(std::string_view bytes, int codePage) {
  CodePageDecoder decoder;
  std::string out;
  decoder.decode(bytes, codePage, out);
  return out;
}

TEST(RtfCodePages, CharsetsNameTheirCodePages) {
  EXPECT_EQ(codePageOfCharset(0), 0);
  EXPECT_EQ(codePageOfCharset(1), 0);
  EXPECT_EQ(codePageOfCharset(2), kSymbolCodePage);
  EXPECT_EQ(codePageOfCharset(77), 10000);
  EXPECT_EQ(codePageOfCharset(128), 932);
  EXPECT_EQ(codePageOfCharset(134), 936);
  EXPECT_EQ(codePageOfCharset(136), 950);
  EXPECT_EQ(codePageOfCharset(129), 949);
  EXPECT_EQ(codePageOfCharset(161), 1253);
  EXPECT_EQ(codePageOfCharset(162), 1254);
  EXPECT_EQ(codePageOfCharset(163), 1258);
  EXPECT_EQ(codePageOfCharset(177), 1255);
  EXPECT_EQ(codePageOfCharset(178), 1256);
  EXPECT_EQ(codePageOfCharset(186), 1257);
  EXPECT_EQ(codePageOfCharset(204), 1251);
  EXPECT_EQ(codePageOfCharset(222), 874);
  EXPECT_EQ(codePageOfCharset(238), 1250);
  EXPECT_EQ(codePageOfCharset(9999), 0);
}

TEST(RtfCodePages, WindowsSingleByteCodePages) {
  EXPECT_EQ(decoded("caf\xe9 \x93q\x94 \x80", 1252), "caf\u00e9 \u201cq\u201d \u20ac");
  EXPECT_EQ(decoded("\x8a\x9a\xe8", 1250), "\u0160\u0161\u010d");
  EXPECT_EQ(decoded("\xcf\xf0\xe8\xe2\xe5\xf2", 1251), "\u041f\u0440\u0438\u0432\u0435\u0442");
  EXPECT_EQ(decoded("\xe1\xe2\xe3", 1253), "\u03b1\u03b2\u03b3");
  EXPECT_EQ(decoded("\xf9\xe1", 1255), "\u05e9\u05d1");
  EXPECT_EQ(decoded("\xa1\xa2", 874), "\u0e01\u0e02");
  EXPECT_EQ(decoded("\xd0", 1254), "\u011e");
  EXPECT_EQ(decoded("\xc7", 1256), "\u0627");
  EXPECT_EQ(decoded("\xe0", 1257), "\u0105");
  EXPECT_EQ(decoded("\xd0", 1258), "\u0110");
}

TEST(RtfCodePages, BuiltIn1252AgreesWithGlibc) {
  iconv_t converter = iconv_open("UTF-8", "CP1252");
  ASSERT_NE(converter, reinterpret_cast<iconv_t>(-1));
  for (int byte = 0x80; byte <= 0xff; ++byte) {
    char in = char(byte);
    char out[8];
    char* inPtr = &in;
    char* outPtr = out;
    size_t inLeft = 1, outLeft = sizeof out;
    iconv(converter, nullptr, nullptr, nullptr, nullptr);
    const bool defined = iconv(converter, &inPtr, &inLeft, &outPtr, &outLeft) != size_t(-1);
    const std::string expected = defined ? std::string(out, size_t(outPtr - out)) : "";
    EXPECT_EQ(decoded(std::string(1, char(byte)), 1252), expected) << byte;
  }
  iconv_close(converter);
}

TEST(RtfCodePages, MacCodePages) {
  EXPECT_EQ(decoded("\x8e\xa5", 10000), "\u00e9\u2022");
  EXPECT_EQ(decoded("\x80", 10007), "\u0410");
  EXPECT_EQ(decoded("\x80", 10029), "\u00c4");
}

TEST(RtfCodePages, DoubleByteCodePages) {
  EXPECT_EQ(decoded("\x93\xfa\x96\x7b", 932), "\u65e5\u672c");  // Shift JIS
  EXPECT_EQ(decoded("\xd6\xd0\xce\xc4", 936), "\u4e2d\u6587");  // GBK
  EXPECT_EQ(decoded("\xc7\xd1\xb1\xdb", 949), "\ud55c\uae00");  // Korean
  EXPECT_EQ(decoded("\xa4\xa4\xa4\xe5", 950), "\u4e2d\u6587");  // Big5
  EXPECT_EQ(decoded("a\x93\xfa"
                    "b",
                    932),
            "a\u65e5b");
}

TEST(RtfCodePages, ALeadByteWithoutItsTrailIsDropped) {
  EXPECT_EQ(decoded("ab\x93", 932), "ab");
}

TEST(RtfCodePages, UndefinedBytesAreDropped) {
  EXPECT_EQ(decoded("a\x81"
                    "b",
                    1252),
            "ab");
  EXPECT_EQ(decoded("a\x80\x80"
                    "b",
                    932),
            "ab");
}

TEST(RtfCodePages, UnknownCodePagesReadAs1252) {
  EXPECT_EQ(decoded("\xe9", 12345), "\u00e9");
}

TEST(RtfCodePages, SymbolFontIsGreekAndMath) {
  EXPECT_EQ(decoded("abg", kSymbolCodePage), "\u03b1\u03b2\u03b3");
  EXPECT_EQ(decoded("\xa5\xb7", kSymbolCodePage), "\u221e\u2022");
  EXPECT_EQ(decoded("1+2", kSymbolCodePage), "1+2");
}

TEST(RtfCodePages, Utf8CodePage) {
  EXPECT_EQ(decoded("caf\xc3\xa9", 65001), "caf\u00e9");
}

TEST(RtfCodePages, Utf8OfEveryRange) {
  std::string out;
  appendUtf8(0x41, out);
  appendUtf8(0xe9, out);
  appendUtf8(0x20ac, out);
  appendUtf8(0x1f600, out);
  EXPECT_EQ(out, "A\u00e9\u20ac\U0001f600");
  out.clear();
  appendUtf8(0xd800, out);
  appendUtf8(0x110000, out);
  EXPECT_EQ(out, "\ufffd\ufffd");
}

}  // namespace
}  // namespace tallowbrook::rtf
