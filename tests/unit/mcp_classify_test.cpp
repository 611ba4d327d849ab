#include "mcp/mcp_classify.h"

#include <gtest/gtest.h>

namespace tallowbrook::McpBridge {
namespace {

using Tag = Kind::Tag;

TEST(McpClassify, RequestCarriesItsIdAsParsed) {
  auto kind = classify(R"({"jsonrpc":"2.0","id":7,"method":"tools/list"})");
  EXPECT_EQ(kind.tag, Tag::request);
  EXPECT_EQ(kind.id, Json(7));

  kind = classify(R"({"method":"ping","id":"a\/b","jsonrpc":"2.0"})");
  EXPECT_EQ(kind.tag, Tag::request);
  EXPECT_EQ(kind.id, Json("a/b"));

  kind = classify(R"({"jsonrpc":"2.0","id":{"k":[1,2.5]},"method":"x"})");
  EXPECT_EQ(kind.tag, Tag::request);
  EXPECT_EQ(kind.id, Json::parse(R"({"k":[1,2.5]})"));
}

TEST(McpClassify, AnIdOfNullStillMakesARequest) {
  auto kind = classify(R"({"jsonrpc":"2.0","id":null,"method":"x"})");
  EXPECT_EQ(kind.tag, Tag::request);
  EXPECT_TRUE(kind.id.is_null());
}

TEST(McpClassify, MethodWithoutIdIsANotification) {
  EXPECT_EQ(classify(R"({"jsonrpc":"2.0","method":"notifications/initialized"})").tag,
            Tag::notification);
  EXPECT_EQ(classify(R"({"jsonrpc":"2.0","method":"x","params":{"id":3}})").tag, Tag::notification);
}

TEST(McpClassify, AResponseFromTheClientIsNeverAnswered) {
  EXPECT_EQ(classify(R"({"jsonrpc":"2.0","id":4,"result":{}})").tag, Tag::notification);
  EXPECT_EQ(classify(R"({"jsonrpc":"2.0","id":4,"error":{"code":1,"message":"m"}})").tag,
            Tag::notification);
  // "jsonrpc" is not looked at for responses.
  EXPECT_EQ(classify(R"({"id":4,"result":null})").tag, Tag::notification);
  EXPECT_EQ(classify(R"({"jsonrpc":1,"id":4,"error":null})").tag, Tag::notification);
}

TEST(McpClassify, AVersionOtherThan20IsMalformed) {
  for (const char* line :
       {R"({"jsonrpc":"1.0","id":1,"method":"x"})", R"({"jsonrpc":2.0,"id":1,"method":"x"})",
        R"({"jsonrpc":2,"id":1,"method":"x"})", R"({"id":1,"method":"x"})",
        R"({"jsonrpc":null,"id":1,"method":"x"})", R"({"jsonrpc":"2.0 ","id":1,"method":"x"})"}) {
    auto kind = classify(line);
    EXPECT_EQ(kind.tag, Tag::malformed) << line;
    EXPECT_TRUE(kind.id.is_null()) << line;
  }
}

TEST(McpClassify, AMethodThatIsNotAStringIsMalformed) {
  EXPECT_EQ(classify(R"({"jsonrpc":"2.0","id":1,"method":3})").tag, Tag::malformed);
  EXPECT_EQ(classify(R"({"jsonrpc":"2.0","id":1,"method":null})").tag, Tag::malformed);
  EXPECT_EQ(classify(R"({"jsonrpc":"2.0","method":["x"]})").tag, Tag::malformed);
}

TEST(McpClassify, NoMethodNeedsAnIdAndAResultOrError) {
  EXPECT_EQ(classify(R"({"jsonrpc":"2.0","result":{}})").tag, Tag::malformed);
  EXPECT_EQ(classify(R"({"jsonrpc":"2.0","id":1})").tag, Tag::malformed);
  EXPECT_EQ(classify(R"({"jsonrpc":"2.0","id":1,"params":{}})").tag, Tag::malformed);
  EXPECT_EQ(classify("{}").tag, Tag::malformed);
}

TEST(McpClassify, AnythingButAJsonObjectIsMalformed) {
  for (const char* line : {"not json", "[]", R"([{"jsonrpc":"2.0","id":1,"method":"x"}])", "1",
                           "\"text\"", "null", "true", "{", R"({"jsonrpc":"2.0","id":1,)",
                           R"({"jsonrpc":"2.0","id":1,"method":"x"} trailing)", ""}) {
    EXPECT_EQ(classify(line).tag, Tag::malformed) << line;
  }
}

TEST(McpClassify, NulBytesAndInvalidUtf8AreMalformed) {
  using namespace std::string_literals;
  EXPECT_EQ(classify("{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"a\0b\"}"s).tag, Tag::malformed);
  EXPECT_EQ(classify("\0"s).tag, Tag::malformed);
  EXPECT_EQ(classify("{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"\xff\"}").tag, Tag::malformed);
}

TEST(McpClassify, EscapedTextIsParsed) {
  auto kind = classify(R"({"jsonrpc":"2.0","id":"\u00e9\n\/","method":"x"})");
  EXPECT_EQ(kind.tag, Tag::request);
  EXPECT_EQ(kind.id, Json("\xC3\xA9\n/"));
}

std::string nested(int depth, const std::string& inner) {
  return std::string(static_cast<size_t>(depth), '[') + inner +
         std::string(static_cast<size_t>(depth), ']');
}

TEST(McpClassify, NestingUpToTheLimitIsParsed) {
  // The id sits one level down, inside the message object.
  std::string line =
      R"({"jsonrpc":"2.0","method":"x","id":)" + nested(kMaxJsonDepth - 1, "1") + "}";
  auto kind = classify(line);
  EXPECT_EQ(kind.tag, Tag::request);
  EXPECT_TRUE(kind.id.is_array());
}

TEST(McpClassify, DeeperNestingIsMalformed) {
  std::string line = R"({"jsonrpc":"2.0","method":"x","id":)" + nested(kMaxJsonDepth, "1") + "}";
  EXPECT_EQ(classify(line).tag, Tag::malformed);
}

TEST(McpClassify, AMillionOpenBracketsAreMalformedWithoutExhaustingTheStack) {
  EXPECT_EQ(classify(std::string(1000000, '[')).tag, Tag::malformed);
  EXPECT_EQ(classify(nested(1000000, "")).tag, Tag::malformed);
  EXPECT_EQ(classify(R"({"jsonrpc":"2.0","method":"x","id":)" + nested(1000000, "") + "}").tag,
            Tag::malformed);
}

}  // namespace
}  // namespace tallowbrook::McpBridge
