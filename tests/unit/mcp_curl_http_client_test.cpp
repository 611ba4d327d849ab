// The libcurl client against a real HTTP server on 127.0.0.1.
#include "mcp/curl_http_client.h"

#include <chrono>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "mcp_http_server.h"

namespace tallowbrook::McpBridge {
namespace {

using namespace std::chrono_literals;

HttpResponse ok(std::string body) {
  return respond(200, std::move(body));
}

// The description of the TransportError that posting `body` throws; nothing when it completes.
std::optional<std::string> failureOf(HttpClient& client, std::string_view body) {
  try {
    client.post(body);
  } catch (const TransportError& error) {
    return error.message();
  }
  return std::nullopt;
}

TEST(CurlHttpClient, PostsTheBodyWithExactlyTheBridgesHeaders) {
  LoopbackHttpServer server([](const HttpRequest&) { return ok("{\"ok\":true}"); });
  auto client = makeCurlHttpClient(server.url(), "tok-123");
  ASSERT_TRUE(client);
  Response response = client->post(R"({"jsonrpc":"2.0", "id":1,"method":"a\/b"})");
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.body, "{\"ok\":true}");

  auto requests = server.requests();
  ASSERT_EQ(requests.size(), 1u);
  const HttpRequest& request = requests[0];
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.target, "/mcp");
  EXPECT_EQ(request.body, R"({"jsonrpc":"2.0", "id":1,"method":"a\/b"})");
  EXPECT_EQ(request.header("Content-Type"), "application/json");
  EXPECT_EQ(request.header("Accept"), "application/json, text/event-stream");
  EXPECT_EQ(request.header("Authorization"), "Bearer tok-123");
  EXPECT_EQ(request.header("Expect"), std::nullopt);
  for (const char* name : {"Content-Type", "Accept", "Authorization", "Host", "Content-Length"}) {
    EXPECT_EQ(request.headerCount(name), 1) << name;
  }
  // Nothing else: no cookies, no user agent, no transfer encodings.
  EXPECT_EQ(request.headers.size(), 5u);
}

TEST(CurlHttpClient, AnEmptyTokenSendsTheBareBearerWord) {
  LoopbackHttpServer server([](const HttpRequest&) { return respond(401); });
  auto client = makeCurlHttpClient(server.url(), "");
  Response response = client->post("{}");
  EXPECT_EQ(response.status, 401);
  EXPECT_EQ(response.body, "");
  auto requests = server.requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].header("Authorization"), "Bearer ");
}

TEST(CurlHttpClient, KeepsOneConnectionForAllExchanges) {
  LoopbackHttpServer server([](const HttpRequest& r) { return ok(r.body); });
  auto client = makeCurlHttpClient(server.url(), "t");
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(client->post(std::to_string(i)).body, std::to_string(i));
  }
  EXPECT_EQ(server.connections(), 1);
}

TEST(CurlHttpClient, StatusesWithoutBodyAreNoFailure) {
  int next = 0;
  const int statuses[] = {202, 400, 500, 503};
  LoopbackHttpServer server([&](const HttpRequest&) { return respond(statuses[next++]); });
  auto client = makeCurlHttpClient(server.url(), "t");
  for (int status : statuses) {
    Response response;
    EXPECT_NO_THROW(response = client->post("{}"));
    EXPECT_EQ(response.status, status);
    EXPECT_EQ(response.body, "");
  }
}

TEST(CurlHttpClient, ARefusedConnectionIsAFailureWithLibcurlsText) {
  int port = deadLoopbackPort();
  auto client = makeCurlHttpClient("http://127.0.0.1:" + std::to_string(port) + "/mcp", "t");
  std::optional<std::string> failure = failureOf(*client, "{}");
  ASSERT_TRUE(failure);
  EXPECT_NE(failure->find("port " + std::to_string(port)), std::string::npos) << *failure;
}

TEST(CurlHttpClient, AClosedConnectionIsAFailure) {
  LoopbackHttpServer server([](const HttpRequest&) { return closeWithoutAnswer(); });
  auto client = makeCurlHttpClient(server.url(), "t");
  EXPECT_EQ(failureOf(*client, "{}"), "Empty reply from server");
}

TEST(CurlHttpClient, AfterAFailureTheNextExchangeWorks) {
  int calls = 0;
  LoopbackHttpServer server(
      [&](const HttpRequest&) { return ++calls == 1 ? closeWithoutAnswer() : ok("again"); });
  auto client = makeCurlHttpClient(server.url(), "t");
  EXPECT_THROW(client->post("{}"), TransportError);
  Response response;
  EXPECT_NO_THROW(response = client->post("{}"));
  EXPECT_EQ(response.body, "again");
}

TEST(CurlHttpClient, AStalledAnswerFailsAfterTheNoProgressLimit) {
  LoopbackHttpServer server([](const HttpRequest&) { return stall(30s); });
  auto client = makeCurlHttpClient(server.url(), "t", 500ms);
  auto start = std::chrono::steady_clock::now();
  std::optional<std::string> failure = failureOf(*client, "{}");
  auto took = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(failure, "Operation timed out: nothing was sent or received for 500 milliseconds");
  EXPECT_GE(took, 500ms);
  EXPECT_LT(took, 20s);  // ended by the limit, not by the server
}

TEST(CurlHttpClient, TheLimitIsOnProgressNotOnTheWholeExchange) {
  // A body of 20 bytes, one every 100 ms: two seconds in all, never 500 ms without a byte.
  LoopbackHttpServer server(
      [](const HttpRequest&) { return trickle(200, "{\"slow\":\"0123456\"}", 100ms); });
  auto client = makeCurlHttpClient(server.url(), "t", 500ms);
  auto start = std::chrono::steady_clock::now();
  Response response;
  EXPECT_NO_THROW(response = client->post("{}"));
  EXPECT_EQ(response.body, "{\"slow\":\"0123456\"}");
  EXPECT_GT(std::chrono::steady_clock::now() - start, 1500ms);
}

TEST(CurlHttpClient, LargeBodiesTravelIntactBothWays) {
  std::string large(10 * 1024 * 1024, 'a');
  for (size_t i = 0; i < large.size(); i += 997) large[i] = static_cast<char>('0' + i % 10);
  LoopbackHttpServer server([](const HttpRequest& r) { return ok(r.body); });
  auto client = makeCurlHttpClient(server.url(), "t");
  Response response = client->post(large);
  EXPECT_EQ(response.status, 200);
  EXPECT_TRUE(response.body == large);
  auto requests = server.requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].header("Expect"), std::nullopt);
}

TEST(CurlHttpClient, AUrlLibcurlCannotUseIsAFailureOnEachExchange) {
  auto client = makeCurlHttpClient("http://127.0.0.1:99999/mcp", "t");
  ASSERT_TRUE(client);
  for (int i = 0; i < 2; ++i) {
    std::optional<std::string> failure = failureOf(*client, "{}");
    ASSERT_TRUE(failure);
    EXPECT_FALSE(failure->empty());
  }
}

}  // namespace
}  // namespace tallowbrook::McpBridge
