// Decoding the answer request.
#include <gtest/gtest.h>

#include <string>

#include "answer/answer_request.h"

using tallowbrook::Answer::decodeRequest;

TEST(AnswerRequest, SystemUserAndMaxTokens) {
  auto r = decodeRequest(R"({"system":"Be brief.","user":"Hi \/ there","maxTokens":12})");
  ASSERT_TRUE(r);
  EXPECT_EQ(r->system, "Be brief.");
  EXPECT_EQ(r->user, "Hi / there");
  EXPECT_EQ(r->maxTokens, 12);
}

TEST(AnswerRequest, MaxTokensAbsentOrNullIs900) {
  auto absent = decodeRequest(R"({"system":"","user":"u"})");
  ASSERT_TRUE(absent);
  EXPECT_EQ(absent->maxTokens, 900);
  auto null = decodeRequest(R"({"system":"","user":"u","maxTokens":null})");
  ASSERT_TRUE(null);
  EXPECT_EQ(null->maxTokens, 900);
}

TEST(AnswerRequest, ExtraKeysAreIgnored) {
  auto r = decodeRequest(
      R"({"model":"x","system":"s","temperature":"hot","user":"u","tools":[{"a":1}],"n":null})");
  ASSERT_TRUE(r);
  EXPECT_EQ(r->system, "s");
  EXPECT_EQ(r->user, "u");
  EXPECT_EQ(r->maxTokens, 900);
}

TEST(AnswerRequest, WholeNumbersAreIntegers) {
  auto r = decodeRequest(R"({"system":"s","user":"u","maxTokens":64.0})");
  ASSERT_TRUE(r);
  EXPECT_EQ(r->maxTokens, 64);
  auto negative = decodeRequest(R"({"system":"s","user":"u","maxTokens":-3})");
  ASSERT_TRUE(negative);
  EXPECT_EQ(negative->maxTokens, -3);
}

TEST(AnswerRequest, RefusesWhatIsNotARequest) {
  for (std::string bad : {
           "",
           "   ",
           "null",
           "[]",
           R"("text")",
           R"({"system":"s"})",
           R"({"user":"u"})",
           R"({"system":1,"user":"u"})",
           R"({"system":"s","user":null})",
           R"({"system":"s","user":["u"]})",
           R"({"system":"s","user":"u","maxTokens":"900"})",
           R"({"system":"s","user":"u","maxTokens":1.5})",
           R"({"system":"s","user":"u","maxTokens":true})",
           R"({"system":"s","user":"u","maxTokens":1e300})",
           R"({"system":"s","user":"u","maxTokens":18446744073709551615})",
           R"({"system":"s","user":"u"} trailing)",
           R"({"system":"s","user":"u")",
       }) {
    EXPECT_FALSE(decodeRequest(bad)) << bad;
  }
}

TEST(AnswerRequest, DeepNestingIsRefusedNotRecursed) {
  std::string deep = R"({"system":"s","user":"u","x":)" + std::string(100000, '[') +
                     std::string(100000, ']') + "}";
  EXPECT_FALSE(decodeRequest(deep));
  std::string fine =
      R"({"system":"s","user":"u","x":)" + std::string(100, '[') + std::string(100, ']') + "}";
  EXPECT_TRUE(decodeRequest(fine));
}
