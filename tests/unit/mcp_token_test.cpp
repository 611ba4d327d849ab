// The token as the bridge puts it in its Authorization header.
#include "mcp/mcp_token.h"

#include <gtest/gtest.h>

#include <string>

using tallowbrook::McpBridge::bearerToken;

TEST(BearerToken, AnOrdinaryTokenIsSentAsItIs) {
  EXPECT_EQ(bearerToken("tb_9f/+="), "tb_9f/+=");
  EXPECT_EQ(bearerToken("with inner blanks"), "with inner blanks");
  EXPECT_EQ(bearerToken(""), "");
}

TEST(BearerToken, BlanksAndLineEndsAroundItArePasteLeftovers) {
  EXPECT_EQ(bearerToken("  secret\n"), "secret");
  EXPECT_EQ(bearerToken("\tsecret \r\n"), "secret");
  EXPECT_EQ(bearerToken("\r\n"), "");
  EXPECT_EQ(bearerToken(" \t "), "");
}

TEST(BearerToken, AControlCharacterInsideIsNeverSent) {
  EXPECT_EQ(bearerToken("secret\r\nX-Injected: 1"), "");
  EXPECT_EQ(bearerToken("secret\nX-Injected: 1\n"), "");
  EXPECT_EQ(bearerToken("sec\x7Fret"), "");
  EXPECT_EQ(bearerToken(std::string("sec\0ret", 7)), "");
  for (int c = 1; c < 0x20; ++c) {
    if (c == '\t' || c == '\n' || c == '\r') continue;
    EXPECT_EQ(bearerToken("a" + std::string(1, char(c)) + "b"), "") << c;
    // Control characters other than blanks and line ends are not trimmed either.
    EXPECT_EQ(bearerToken(std::string(1, char(c)) + "secret"), "") << c;
  }
}

TEST(BearerToken, BytesAboveAsciiAreNotControlCharacters) {
  EXPECT_EQ(bearerToken("t\xC3\xB6ken"), "t\xC3\xB6ken");
}
