#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "mcp/mcp_bridge.h"
#include "stdout_capture.h"

namespace tallowbrook::McpBridge {
namespace {

// One scripted exchange: the response, or the transport failure post() throws.
struct Scripted {
  Response response;
  std::optional<std::string> failure;
};

// Answers each post with the next scripted exchange (a 202 once the script runs out) and keeps
// what was posted.
class FakeHttpClient : public HttpClient {
 public:
  explicit FakeHttpClient(std::deque<Scripted> script) : script_(std::move(script)) {}
  Response post(std::string_view body) override {
    posted.emplace_back(body);
    if (script_.empty()) return Response{std::string(), 202};
    Scripted next = std::move(script_.front());
    script_.pop_front();
    if (next.failure) throw TransportError(*next.failure);
    return next.response;
  }
  std::vector<std::string> posted;

 private:
  std::deque<Scripted> script_;
};

int inputOf(const std::string& bytes) {
  FILE* file = std::tmpfile();
  std::fwrite(bytes.data(), 1, bytes.size(), file);
  std::fflush(file);
  int fd = dup(fileno(file));
  std::fclose(file);
  lseek(fd, 0, SEEK_SET);
  return fd;
}

// Relays `input` through `client`; returns what was printed.
std::string relayed(const std::string& input, HttpClient& client) {
  int fd = inputOf(input);
  StdoutCapture capture;
  relay(fd, client);
  close(fd);
  return capture.text();
}

Scripted answered(long status, std::string body) {
  return Scripted{Response{std::move(body), status}, std::nullopt};
}
Scripted failed(std::string failure) {
  return Scripted{Response{}, std::move(failure)};
}

TEST(McpRelay, PostsEachTrimmedLineUnchanged) {
  FakeHttpClient client({});
  relayed(" \t{\"jsonrpc\" : \"2.0\", \"id\":1, \"method\":\"a\\/b\"}\t \r\nnot json\n", client);
  EXPECT_EQ(client.posted,
            (std::vector<std::string>{"{\"jsonrpc\" : \"2.0\", \"id\":1, \"method\":\"a\\/b\"}",
                                      "not json"}));
}

TEST(McpRelay, SkipsBlankLinesWithoutPosting) {
  FakeHttpClient client({});
  EXPECT_EQ(relayed("\n   \n\t\t\n \t \n", client), "");
  EXPECT_TRUE(client.posted.empty());
}

TEST(McpRelay, PrintsOneLinePerAnswerInOrder) {
  FakeHttpClient client({answered(200, "{\"id\":1,\n\"result\":{}}\n"), answered(202, ""),
                         answered(503, ""), failed("Empty reply from server"), answered(400, "")});
  std::string out = relayed(
      "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"x\"}\n"
      "{\"jsonrpc\":\"2.0\",\"method\":\"n\"}\n"
      "{\"jsonrpc\":\"2.0\",\"id\":\"s\",\"method\":\"x\"}\n"
      "{\"jsonrpc\":\"2.0\",\"id\":3,\"method\":\"x\"}\n"
      "garbage\n",
      client);
  EXPECT_EQ(out,
            "{\"id\":1,\"result\":{}}\n"
            "{\"jsonrpc\":\"2.0\",\"id\":\"s\",\"error\":{\"code\":-32000,\"message\":"
            "\"Sharing with AI apps is switched off in Tallowbrook.\"}}\n"
            "{\"jsonrpc\":\"2.0\",\"id\":3,\"error\":{\"code\":-32000,\"message\":"
            "\"Tallowbrook is not reachable (Empty reply from server). Open the app and check "
            "Settings \u2192 Answering \u2192 Claude and other AI apps.\"}}\n"
            "{\"jsonrpc\":\"2.0\",\"id\":null,\"error\":{\"code\":-32000,\"message\":"
            "\"Tallowbrook answered HTTP 400.\"}}\n");
  EXPECT_EQ(client.posted.size(), 5u);
}

TEST(McpRelay, InvalidUtf8IsPostedAsReplacementCharacters) {
  FakeHttpClient client({});
  relayed("{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"a\xff\xfe\"}\n", client);
  ASSERT_EQ(client.posted.size(), 1u);
  EXPECT_EQ(client.posted[0],
            "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"a\xEF\xBF\xBD\xEF\xBF\xBD\"}");
}

TEST(McpRelay, ARequestWithInvalidUtf8KeepsItsId) {
  FakeHttpClient client({answered(500, "")});
  std::string out = relayed("{\"jsonrpc\":\"2.0\",\"id\":9,\"method\":\"\xc3\"}\n", client);
  EXPECT_EQ(out,
            "{\"jsonrpc\":\"2.0\",\"id\":9,\"error\":{\"code\":-32000,\"message\":"
            "\"Tallowbrook answered HTTP 500.\"}}\n");
}

TEST(McpRelay, NulBytesArePostedAndTheLineIsMalformed) {
  FakeHttpClient client({answered(400, "")});
  std::string line("{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"\0\"}", 34);
  std::string out = relayed(line + "\n", client);
  ASSERT_EQ(client.posted.size(), 1u);
  EXPECT_EQ(client.posted[0], line);
  EXPECT_EQ(out,
            "{\"jsonrpc\":\"2.0\",\"id\":null,\"error\":{\"code\":-32000,\"message\":"
            "\"Tallowbrook answered HTTP 400.\"}}\n");
}

TEST(McpRelay, EndsOnlyAtTheEndOfInput) {
  std::deque<Scripted> script;
  std::string input;
  for (int i = 0; i < 50; ++i) {
    script.push_back(failed("Couldn't connect to server"));
    input += "{\"jsonrpc\":\"2.0\",\"id\":" + std::to_string(i) + ",\"method\":\"x\"}\n";
  }
  FakeHttpClient client(std::move(script));
  std::string out = relayed(input, client);
  EXPECT_EQ(client.posted.size(), 50u);
  EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 50);
}

TEST(McpRelay, NothingAtAllForEmptyInput) {
  FakeHttpClient client({});
  EXPECT_EQ(relayed("", client), "");
  EXPECT_TRUE(client.posted.empty());
}

}  // namespace
}  // namespace tallowbrook::McpBridge
