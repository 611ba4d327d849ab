#include "mcp/mcp_endpoint.h"

#include <gtest/gtest.h>

namespace tallowbrook::McpBridge {
namespace {

bool accepted(const std::string& text) {
  auto url = parseUrl(text);
  return url && isAppEndpoint(*url);
}

TEST(McpEndpoint, TheAppsLoopbackEndpointIsAccepted) {
  EXPECT_TRUE(accepted("http://127.0.0.1:8080/mcp"));
  EXPECT_TRUE(accepted("http://localhost:8080/mcp"));
  EXPECT_TRUE(accepted("http://127.0.0.1:1/mcp"));
}

TEST(McpEndpoint, ThePortHasNoUpperBound) {
  EXPECT_TRUE(accepted("http://127.0.0.1:65536/mcp"));
  EXPECT_TRUE(accepted("http://127.0.0.1:999999999999999999/mcp"));
  // More digits than a port can ever hold do not parse.
  EXPECT_FALSE(parseUrl("http://127.0.0.1:9999999999999999999/mcp"));
}

TEST(McpEndpoint, OtherSchemesAreRejected) {
  EXPECT_FALSE(accepted("https://127.0.0.1:8080/mcp"));
  EXPECT_FALSE(accepted("HTTP://127.0.0.1:8080/mcp"));
  EXPECT_FALSE(accepted("ws://127.0.0.1:8080/mcp"));
  EXPECT_FALSE(accepted("//127.0.0.1:8080/mcp"));
  EXPECT_FALSE(accepted("127.0.0.1:8080/mcp"));
}

TEST(McpEndpoint, OnlyTheTwoLoopbackNamesAreAccepted) {
  for (const char* url :
       {"http://127.0.0.2:8080/mcp", "http://0.0.0.0:8080/mcp", "http://192.168.1.4:8080/mcp",
        "http://[::1]:8080/mcp", "http://LOCALHOST:8080/mcp", "http://localhost.:8080/mcp",
        "http://example.com:8080/mcp", "http://127.1:8080/mcp", "http://:8080/mcp",
        "http://127.0.0.1.nip.io:8080/mcp"}) {
    EXPECT_FALSE(accepted(url)) << url;
  }
}

TEST(McpEndpoint, APortOfAtLeastOneIsRequired) {
  EXPECT_FALSE(accepted("http://127.0.0.1/mcp"));
  EXPECT_FALSE(accepted("http://127.0.0.1:/mcp"));
  EXPECT_FALSE(accepted("http://127.0.0.1:0/mcp"));
  EXPECT_FALSE(accepted("http://127.0.0.1:00/mcp"));
  EXPECT_FALSE(accepted("http://127.0.0.1:-1/mcp"));
  EXPECT_FALSE(accepted("http://127.0.0.1:80a/mcp"));
}

TEST(McpEndpoint, ThePathMustBeMcp) {
  EXPECT_FALSE(accepted("http://127.0.0.1:8080"));
  EXPECT_FALSE(accepted("http://127.0.0.1:8080/"));
  EXPECT_FALSE(accepted("http://127.0.0.1:8080/MCP"));
  EXPECT_FALSE(accepted("http://127.0.0.1:8080/mcp/x"));
  EXPECT_FALSE(accepted("http://127.0.0.1:8080/api/mcp"));
  EXPECT_FALSE(accepted("http://127.0.0.1:8080/mcpx"));
  // The path as the parser reports it: percent-decoded, without a trailing slash.
  EXPECT_TRUE(accepted("http://127.0.0.1:8080/%6Dcp"));
  EXPECT_TRUE(accepted("http://127.0.0.1:8080/mcp/"));
}

TEST(McpEndpoint, UserPasswordQueryAndFragmentAreRejected) {
  EXPECT_FALSE(accepted("http://user@127.0.0.1:8080/mcp"));
  EXPECT_FALSE(accepted("http://user:pw@127.0.0.1:8080/mcp"));
  EXPECT_FALSE(accepted("http://:pw@127.0.0.1:8080/mcp"));
  EXPECT_FALSE(accepted("http://@127.0.0.1:8080/mcp"));
  EXPECT_FALSE(accepted("http://127.0.0.1:8080/mcp?token=x"));
  EXPECT_FALSE(accepted("http://127.0.0.1:8080/mcp?"));
  EXPECT_FALSE(accepted("http://127.0.0.1:8080/mcp#top"));
  EXPECT_FALSE(accepted("http://127.0.0.1:8080/mcp#"));
}

TEST(McpEndpoint, TextThatIsNoUrlDoesNotParse) {
  for (const char* text :
       {"http://127.0.0.1:8080/m cp", "http://127.0.0.1:8080/mcp\n", "http://127.0.0.1:8080/%zzcp",
        "http://127.0.0.1:8080/mcp%", "http://127.0.0.1:8080/m\xC3\xA9", "http://[::1:8080/mcp",
        "http://127.0.0.1:8080/<mcp>", "http://127.0.0.1:8080/mcp\\"}) {
    EXPECT_FALSE(parseUrl(text)) << text;
  }
}

TEST(McpEndpoint, PartsAreReported) {
  auto url = parseUrl("http://u:p@127.0.0.1:8080/a%2Fb/?q=1#f");
  ASSERT_TRUE(url);
  EXPECT_EQ(url->scheme, "http");
  EXPECT_EQ(url->user, "u");
  EXPECT_EQ(url->password, "p");
  EXPECT_EQ(url->host, "127.0.0.1");
  EXPECT_EQ(url->port, 8080);
  EXPECT_EQ(url->path, "/a/b");
  EXPECT_EQ(url->query, "q=1");
  EXPECT_EQ(url->fragment, "f");

  url = parseUrl("http://127.0.0.1:8080/mcp");
  ASSERT_TRUE(url);
  EXPECT_FALSE(url->user);
  EXPECT_FALSE(url->password);
  EXPECT_FALSE(url->query);
  EXPECT_FALSE(url->fragment);
}

TEST(McpEndpoint, APathThatDecodesToNoTextIsAbsent) {
  auto url = parseUrl("http://127.0.0.1:8080/%FF");
  ASSERT_TRUE(url);
  EXPECT_FALSE(url->path);
}

}  // namespace
}  // namespace tallowbrook::McpBridge
