#include "mcp/mcp_reply.h"

#include <cmath>

#include <gtest/gtest.h>

namespace tallowbrook::McpBridge {
namespace {

const std::string kUnreachablePrefix = "Tallowbrook is not reachable (";
const std::string kUnreachableSuffix =
    "). Open the app and check Settings \u2192 Answering \u2192 Claude and other AI apps.";
const std::string kSharingOff = "Sharing with AI apps is switched off in Tallowbrook.";
const std::string kRefusedToken =
    "Tallowbrook refused the token. Copy the Claude Desktop setup again from Tallowbrook's "
    "Settings; the token was probably replaced.";

std::string errorLine(const std::string& idJson, const std::string& message) {
  return R"({"jsonrpc":"2.0","id":)" + idJson + R"(,"error":{"code":-32000,"message":")" + message +
         "\"}}";
}

const Kind kRequest = Kind::request(Json(5));

TEST(McpError, IsCompactJsonRpcWithCodeMinus32000) {
  EXPECT_EQ(error(Json(1), "m"), errorLine("1", "m"));
  EXPECT_EQ(error(Json(nullptr), "m"), errorLine("null", "m"));
  EXPECT_EQ(error(Json("x"), "m"), errorLine("\"x\"", "m"));
}

TEST(McpError, EscapesSlashesAndKeepsNonAscii) {
  EXPECT_EQ(error(Json("a/b"), "c/d \u2192"), errorLine(R"("a\/b")", R"(c\/d )"
                                                                     "\u2192"));
}

TEST(McpError, WritesAnyIdValue) {
  EXPECT_EQ(error(Json::parse(R"({"k":[1,true,null]})"), "m"),
            errorLine(R"({"k":[1,true,null]})", "m"));
  EXPECT_EQ(error(Json(-12), "m"), errorLine("-12", "m"));
  EXPECT_EQ(error(Json(18446744073709551615ull), "m"), errorLine("18446744073709551615", "m"));
}

TEST(McpError, NothingWhenTheIdCannotBeSerialised) {
  EXPECT_EQ(error(Json(std::nan("")), "m"), std::nullopt);
}

TEST(McpReply, A200BodyIsPrintedWithItsLineFeedsRemoved) {
  std::string body =
      "{\n  \"jsonrpc\": \"2.0\",\r\n  \"id\": 5,\n  \"result\": {\"a\": \"x/y\"}\n}\n";
  EXPECT_EQ(reply(kRequest, Response{body, 200}),
            "{  \"jsonrpc\": \"2.0\",\r  \"id\": 5,  \"result\": {\"a\": \"x/y\"}}");
}

TEST(McpReply, A200BodyIsPrintedForEveryKind) {
  for (const Kind& kind : {kRequest, Kind::notification(), Kind::malformed()}) {
    EXPECT_EQ(reply(kind, Response{std::string("anything"), 200}), "anything");
  }
}

TEST(McpReply, A200BodyThatIsNotTextIsAnError) {
  EXPECT_EQ(reply(kRequest, Response{std::string("\xff\xfe"), 200}),
            errorLine("5", "Tallowbrook answered HTTP 200."));
  EXPECT_EQ(reply(kRequest, Response{std::string(""), 200}),
            errorLine("5", "Tallowbrook answered HTTP 200."));
  EXPECT_EQ(reply(Kind::malformed(), Response{std::string(""), 200}),
            errorLine("null", "Tallowbrook answered HTTP 200."));
}

TEST(McpReply, AFailedExchangeIsUnreachable) {
  EXPECT_EQ(unreachable(kRequest, "Empty reply from server"),
            errorLine("5", kUnreachablePrefix + "Empty reply from server" + kUnreachableSuffix));
}

TEST(McpReply, NotificationsGetNothingButA200Body) {
  for (long status : {0L, 202L, 400L, 401L, 500L, 503L}) {
    EXPECT_EQ(reply(Kind::notification(), Response{std::string("x"), status}), std::nullopt)
        << status;
  }
  EXPECT_EQ(unreachable(Kind::notification(), "refused"), std::nullopt);
  EXPECT_EQ(reply(Kind::notification(), Response{std::string(""), 200}), std::nullopt);
}

TEST(McpReply, MessagesByStatus) {
  EXPECT_EQ(reply(kRequest, Response{std::string("busy"), 503}), errorLine("5", kSharingOff));
  EXPECT_EQ(reply(kRequest, Response{std::string(""), 401}), errorLine("5", kRefusedToken));
  EXPECT_EQ(reply(kRequest, Response{std::string(""), 202}), std::nullopt);
  EXPECT_EQ(reply(kRequest, Response{std::string("{}"), 500}),
            errorLine("5", "Tallowbrook answered HTTP 500."));
  EXPECT_EQ(reply(kRequest, Response{std::string(), 0}),
            errorLine("5", "Tallowbrook answered HTTP 0."));
  EXPECT_EQ(reply(kRequest, Response{std::string(""), 302}),
            errorLine("5", "Tallowbrook answered HTTP 302."));
}

TEST(McpReply, MalformedLinesGetANullId) {
  EXPECT_EQ(reply(Kind::malformed(), Response{std::string(), 400}),
            errorLine("null", "Tallowbrook answered HTTP 400."));
  EXPECT_EQ(reply(Kind::malformed(), Response{std::string(""), 202}), std::nullopt);
  EXPECT_EQ(unreachable(Kind::malformed(), "x"),
            errorLine("null", kUnreachablePrefix + "x" + kUnreachableSuffix));
}

TEST(McpReply, TheRequestsIdIsKept) {
  EXPECT_EQ(reply(Kind::request(Json("id/1")), Response{std::string(), 503}),
            errorLine(R"("id\/1")", kSharingOff));
  EXPECT_EQ(reply(Kind::request(Json(nullptr)), Response{std::string(), 503}),
            errorLine("null", kSharingOff));
}

TEST(McpReply, TheFailureTextIsEscapedInTheMessage) {
  auto line = unreachable(kRequest, "a \"quoted\" /path\n");
  ASSERT_TRUE(line);
  EXPECT_EQ(line->find('\n'), std::string::npos);
  auto doc = Json::parse(*line);
  EXPECT_EQ(doc["error"]["message"],
            kUnreachablePrefix + "a \"quoted\" /path\n" + kUnreachableSuffix);
}

}  // namespace
}  // namespace tallowbrook::McpBridge
