// mcp-bridge run as a desktop AI client runs it, against a real HTTP server on 127.0.0.1.
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "mcp_http_server.h"
#include "run_helper.h"

namespace {

using namespace std::chrono_literals;
using nlohmann::json;

const char* kUsage = "usage: mcp-bridge http://127.0.0.1:<port>/mcp";
const std::string kUnreachablePrefix = "Tallowbrook is not reachable (";
const std::string kUnreachableSuffix =
    "). Open the app and check Settings \u2192 Answering \u2192 Claude and other AI apps.";
const char* kSharingOff = "Sharing with AI apps is switched off in Tallowbrook.";
const char* kRefusedToken =
    "Tallowbrook refused the token. Copy the Claude Desktop setup again from Tallowbrook's "
    "Settings; the token was probably replaced.";

std::string request(const json& id, const std::string& method = "tools/list") {
  return json{{"jsonrpc", "2.0"}, {"id", id}, {"method", method}}.dump();
}

json errorFor(const json& id, const std::string& message) {
  return json{{"jsonrpc", "2.0"}, {"id", id}, {"error", {{"code", -32000}, {"message", message}}}};
}

HelperRun bridge(const std::string& url, const std::string& input, RunOptions options = {}) {
  options.input = input;
  if (options.env.empty() && options.unsetEnv.empty()) {
    options.env.emplace_back("TALLOWBROOK_MCP_TOKEN", "secret");
  }
  return runHelper({"mcp-bridge", url}, options);
}

void expectUsageFailure(const HelperRun& run) {
  EXPECT_EQ(run.status, 1);
  auto lines = jsonLines(run.out);
  ASSERT_EQ(lines.size(), 1u) << run.out;
  EXPECT_EQ(lines[0], (json{{"type", "error"}, {"message", kUsage}}));
}

// Each line of `out`, unparsed.
std::vector<std::string> rawLines(const std::string& out) {
  std::vector<std::string> lines;
  size_t start = 0;
  for (size_t end; (end = out.find('\n', start)) != std::string::npos; start = end + 1) {
    lines.push_back(out.substr(start, end - start));
  }
  EXPECT_EQ(start, out.size()) << "output does not end with a line feed";
  return lines;
}

TEST(McpBridgeCli, TheAppsEndpointIsAcceptedAndEmptyInputEndsAtOnce) {
  for (const char* url : {"http://127.0.0.1:8080/mcp", "http://localhost:8080/mcp"}) {
    auto run = runHelper({"mcp-bridge", url, "ignored"});
    EXPECT_EQ(run.status, 0) << url;
    EXPECT_EQ(run.out, "") << url;
    EXPECT_EQ(run.err, "") << url;
  }
}

TEST(McpBridgeCli, AnyOtherEndpointGetsTheUsageLine) {
  expectUsageFailure(runHelper({"mcp-bridge"}));
  for (const char* url :
       {"https://127.0.0.1:8080/mcp", "http://127.0.0.1/mcp", "http://127.0.0.1:0/mcp",
        "http://127.0.0.1:8080/mcp?x=1", "http://user@127.0.0.1:8080/mcp",
        "http://127.0.0.2:8080/mcp", "http://0.0.0.0:8080/mcp", "http://[::1]:8080/mcp",
        "http://127.0.0.1:8080/other", "not a url", ""}) {
    SCOPED_TRACE(url);
    expectUsageFailure(runHelper({"mcp-bridge", url}));
  }
}

TEST(McpBridgeCli, AnotherAddressOfThisMachineIsRejected) {
  auto host = runProgram({"hostname", "-I"});
  std::string address = host.out.substr(0, host.out.find_first_of(" \n"));
  if (address.empty()) address = "10.0.0.1";
  expectUsageFailure(runHelper({"mcp-bridge", "http://" + address + ":8080/mcp"}));
}

TEST(McpBridgeCli, BlankLinesAreSkippedWithoutARequest) {
  LoopbackHttpServer server([](const HttpRequest&) { return respond(500); });
  auto run = bridge(server.url(), "\n   \n\t \t\n  \r\n");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "");
  EXPECT_TRUE(server.requests().empty());
}

TEST(McpBridgeCli, APrettyPrintedAnswerIsPrintedAsOneLine) {
  const std::string pretty =
      "{\n  \"jsonrpc\": \"2.0\",\n  \"id\": 1,\n  \"result\": {\n    \"path\": \"a/b\",\n"
      "    \"text\": \"line\\nbreak \\u00e9 \xE2\x86\x92\"\n  }\n}\n";
  LoopbackHttpServer server([&](const HttpRequest&) { return respond(200, pretty); });
  auto run = bridge(server.url(), request(1) + "\n");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out,
            "{  \"jsonrpc\": \"2.0\",  \"id\": 1,  \"result\": {    \"path\": \"a/b\",    "
            "\"text\": \"line\\nbreak \\u00e9 \xE2\x86\x92\"  }}\n");
}

TEST(McpBridgeCli, EachLineIsPostedUnchangedWithTheBridgesHeaders) {
  LoopbackHttpServer server([](const HttpRequest&) { return respond(202); });
  const std::string line =
      "{\"jsonrpc\" : \"2.0\",\"id\":1.50, \"method\":\"tools\\/call\",\"params\":{\"t\":"
      "\"\xE6\x97\xA5\\u0001\"}}";
  auto run = bridge(server.url(), " \t" + line + " \t\r\n");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "");
  auto requests = server.requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].method, "POST");
  EXPECT_EQ(requests[0].target, "/mcp");
  EXPECT_EQ(requests[0].body, line);
  EXPECT_EQ(requests[0].header("Content-Type"), "application/json");
  EXPECT_EQ(requests[0].header("Accept"), "application/json, text/event-stream");
  EXPECT_EQ(requests[0].header("Authorization"), "Bearer secret");
}

TEST(McpBridgeCli, AnAcceptedRequestPrintsNothing) {
  LoopbackHttpServer server([](const HttpRequest&) { return respond(202); });
  auto run = bridge(server.url(), request(3) + "\n");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "");
}

TEST(McpBridgeCli, ANotificationGetsNothingUnlessTheAppAnswersWithABody) {
  const std::string notification = R"({"jsonrpc":"2.0","method":"notifications/initialized"})";
  {
    LoopbackHttpServer server([](const HttpRequest&) { return respond(500, "oops"); });
    auto run = bridge(server.url(), notification + "\n");
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(server.requests().size(), 1u);
  }
  {
    LoopbackHttpServer server([](const HttpRequest&) { return respond(200, "{\"x\":\n1}"); });
    auto run = bridge(server.url(), notification + "\n");
    EXPECT_EQ(run.out, "{\"x\":1}\n");
  }
}

TEST(McpBridgeCli, ALineThatIsNotJsonIsStillPosted) {
  LoopbackHttpServer server([](const HttpRequest&) { return respond(400); });
  auto run = bridge(server.url(), "this is not json\n");
  EXPECT_EQ(run.status, 0);
  ASSERT_EQ(server.requests().size(), 1u);
  EXPECT_EQ(server.requests()[0].body, "this is not json");
  EXPECT_EQ(run.out,
            "{\"jsonrpc\":\"2.0\",\"id\":null,\"error\":{\"code\":-32000,\"message\":"
            "\"Tallowbrook answered HTTP 400.\"}}\n");
}

TEST(McpBridgeCli, AResponseFromTheClientIsNeverAnsweredWithAnError) {
  LoopbackHttpServer server([](const HttpRequest&) { return respond(500); });
  auto run = bridge(server.url(), R"({"jsonrpc":"2.0","id":4,"result":{}})"
                                  "\n"
                                  R"({"jsonrpc":"2.0","id":5,"error":{"code":1,"message":"no"}})"
                                  "\n");
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(server.requests().size(), 2u);
}

TEST(McpBridgeCli, AnotherJsonRpcVersionCountsAsMalformed) {
  LoopbackHttpServer server([](const HttpRequest&) { return respond(500); });
  auto run = bridge(server.url(), R"({"jsonrpc":"1.0","id":1,"method":"x"})"
                                  "\n"
                                  R"({"jsonrpc":2,"id":2,"method":"x"})"
                                  "\n"
                                  R"({"id":3,"method":"x"})"
                                  "\n");
  auto lines = jsonLines(run.out);
  ASSERT_EQ(lines.size(), 3u);
  for (const auto& line : lines) {
    EXPECT_EQ(line, errorFor(nullptr, "Tallowbrook answered HTTP 500."));
  }
}

TEST(McpBridgeCli, WithoutTheTokenTheHeaderIsTheBareBearerWord) {
  LoopbackHttpServer server([](const HttpRequest& r) {
    return r.header("Authorization") == "Bearer secret" ? respond(202) : respond(401);
  });
  RunOptions options;
  options.unsetEnv.push_back("TALLOWBROOK_MCP_TOKEN");
  auto run = bridge(server.url(), request("t1") + "\n", options);
  ASSERT_EQ(server.requests().size(), 1u);
  EXPECT_EQ(server.requests()[0].header("Authorization"), "Bearer ");
  auto lines = jsonLines(run.out);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0], errorFor("t1", kRefusedToken));
}

TEST(McpBridgeCli, TheTokenComesFromTheEnvironment) {
  LoopbackHttpServer server([](const HttpRequest&) { return respond(202); });
  RunOptions options;
  options.env.emplace_back("TALLOWBROOK_MCP_TOKEN", "tb_9f/+=");
  bridge(server.url(), request(1) + "\n", options);
  ASSERT_EQ(server.requests().size(), 1u);
  EXPECT_EQ(server.requests()[0].header("Authorization"), "Bearer tb_9f/+=");
}

// The header lines of a request's head, split at CR LF; fails the test if a bare CR or LF or
// any other control character is in it.
std::vector<std::string> headLines(const std::string& head) {
  std::vector<std::string> lines;
  size_t start = 0;
  for (;;) {
    size_t end = head.find("\r\n", start);
    std::string line = head.substr(start, end == std::string::npos ? end : end - start);
    for (char c : line) {
      EXPECT_FALSE(static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
          << "control character " << int(c) << " in " << line;
    }
    lines.push_back(line);
    if (end == std::string::npos) return lines;
    start = end + 2;
  }
}

TEST(McpBridgeCli, BlanksAndLineEndsAroundTheTokenAreDropped) {
  LoopbackHttpServer server([](const HttpRequest&) { return respond(202); });
  RunOptions options;
  options.env.emplace_back("TALLOWBROOK_MCP_TOKEN", "  tb_9f/+=\r\n");
  bridge(server.url(), request(1) + "\n", options);
  ASSERT_EQ(server.requests().size(), 1u);
  auto lines = headLines(server.requests()[0].head);
  EXPECT_NE(std::find(lines.begin(), lines.end(), "Authorization: Bearer tb_9f/+="), lines.end())
      << server.requests()[0].head;
}

TEST(McpBridgeCli, ATokenHoldingALineBreakNeverReachesTheHeaders) {
  for (std::string token :
       {std::string("secret\r\nX-Injected: 1"), std::string("secret\nX-Injected: 1"),
        std::string("sec\x01ret"), std::string("secret\rX-Injected: 1")}) {
    LoopbackHttpServer server([](const HttpRequest& r) {
      return r.header("Authorization") == "Bearer secret" ? respond(202) : respond(401);
    });
    RunOptions options;
    options.env.emplace_back("TALLOWBROOK_MCP_TOKEN", token);
    auto run = bridge(server.url(), request("t1") + "\n", options);
    auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1u);
    const auto& sent = requests[0];
    auto lines = headLines(sent.head);
    EXPECT_EQ(sent.headerCount("X-Injected"), 0) << sent.head;
    EXPECT_EQ(sent.headerCount("Authorization"), 1) << sent.head;
    EXPECT_NE(std::find(lines.begin(), lines.end(), "Authorization: Bearer "), lines.end())
        << sent.head;
    // The application refuses the bare word, and the user gets the token message.
    auto printed = jsonLines(run.out);
    ASSERT_EQ(printed.size(), 1u);
    EXPECT_EQ(printed[0], errorFor("t1", kRefusedToken));
  }
}

TEST(McpBridgeCli, StatusesBecomeErrorsWithTheRequestsId) {
  int next = 0;
  const int statuses[] = {503, 401, 500, 404};
  LoopbackHttpServer server([&](const HttpRequest&) { return respond(statuses[next++]); });
  auto run = bridge(server.url(), request(1) + "\n" + request("two") + "\n" + request(3.5) + "\n" +
                                      request(json::array({1})) + "\n");
  EXPECT_EQ(run.status, 0);
  auto lines = jsonLines(run.out);
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0], errorFor(1, kSharingOff));
  EXPECT_EQ(lines[1], errorFor("two", kRefusedToken));
  EXPECT_EQ(lines[2], errorFor(3.5, "Tallowbrook answered HTTP 500."));
  EXPECT_EQ(lines[3], errorFor(json::array({1}), "Tallowbrook answered HTTP 404."));
}

TEST(McpBridgeCli, AClosedConnectionIsReportedAndTheBridgeGoesOn) {
  int calls = 0;
  LoopbackHttpServer server([&](const HttpRequest&) {
    return ++calls == 1 ? closeWithoutAnswer()
                        : respond(200, "{\"jsonrpc\":\"2.0\",\"id\":2,\"result\":{}}");
  });
  auto run = bridge(server.url(), request(1) + "\n" + request(2) + "\n");
  EXPECT_EQ(run.status, 0);
  auto lines = jsonLines(run.out);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0],
            errorFor(1, kUnreachablePrefix + "Empty reply from server" + kUnreachableSuffix));
  EXPECT_EQ(lines[1], json::parse("{\"jsonrpc\":\"2.0\",\"id\":2,\"result\":{}}"));
}

TEST(McpBridgeCli, ADeadPortAnswersEveryRequestAndNoNotification) {
  int port = deadLoopbackPort();
  std::string url = "http://127.0.0.1:" + std::to_string(port) + "/mcp";
  auto run = bridge(url, request(1) + "\n" + R"({"jsonrpc":"2.0","method":"n"})" + "\n" + "junk\n" +
                             request(2) + "\n");
  EXPECT_EQ(run.status, 0);
  auto lines = jsonLines(run.out);
  ASSERT_EQ(lines.size(), 3u);
  const json ids[] = {1, nullptr, 2};
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(lines[i]["id"], ids[i]);
    EXPECT_EQ(lines[i]["error"]["code"], -32000);
    std::string message = lines[i]["error"]["message"];
    EXPECT_EQ(message.rfind(kUnreachablePrefix, 0), 0u) << message;
    EXPECT_NE(message.find("port " + std::to_string(port)), std::string::npos) << message;
    EXPECT_EQ(message.substr(message.size() - kUnreachableSuffix.size()), kUnreachableSuffix);
  }
}

TEST(McpBridgeCli, OneConnectionServesTheWholeRun) {
  LoopbackHttpServer server([](const HttpRequest& r) { return respond(200, r.body); });
  std::string input;
  for (int i = 0; i < 30; ++i) input += request(i) + "\n";
  auto run = bridge(server.url(), input);
  EXPECT_EQ(jsonLines(run.out).size(), 30u);
  EXPECT_EQ(server.connections(), 1);
}

TEST(McpBridgeCli, EndOfInputEndsTheRunWithStatusZeroAndNoOutput) {
  LoopbackHttpServer server([](const HttpRequest&) { return respond(202); });
  auto run = bridge(server.url(), "");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "");
  EXPECT_FALSE(run.timedOut);
}

TEST(McpBridgeCli, AStalledAnswerEndsAfter120SecondsWithoutProgress) {
  int calls = 0;
  LoopbackHttpServer server([&](const HttpRequest&) {
    return ++calls == 1 ? stall(300s)
                        : respond(200, "{\"jsonrpc\":\"2.0\",\"id\":2,\"result\":{}}");
  });
  RunOptions options;
  options.timeoutMs = 200000;
  options.env.emplace_back("TALLOWBROOK_MCP_TOKEN", "secret");
  auto start = std::chrono::steady_clock::now();
  auto run = bridge(server.url(), request(1) + "\n" + request(2) + "\n", options);
  auto took = std::chrono::steady_clock::now() - start;
  EXPECT_FALSE(run.timedOut);
  EXPECT_EQ(run.status, 0);
  EXPECT_GE(took, 120s);
  auto lines = jsonLines(run.out);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0],
            errorFor(1, kUnreachablePrefix +
                            "Operation timed out: nothing was sent or received for 120 seconds" +
                            kUnreachableSuffix));
  EXPECT_EQ(lines[1]["id"], 2);
}

// A bridge run whose peak memory is read while the bridge still runs: the input is written,
// followed by a last request with the id "end"; once its answer is printed every line has been
// relayed, and the bridge's own high-water mark (VmHWM, counted from its exec) is read from
// /proc before its input is closed.
struct MeasuredRun {
  std::string out;  // everything printed, the answer to "end" included
  long peakKib = -1;
  int status = -1;
};

MeasuredRun runMeasured(const std::string& url, const std::string& input) {
  const std::string last = request("end") + "\n";
  std::vector<std::string> envText{"TALLOWBROOK_MCP_TOKEN=secret",
                                   // Under AddressSanitizer freed memory is held back; keep
                                   // that small so the peak measures the bridge.
                                   "ASAN_OPTIONS=quarantine_size_mb=4"};
  for (char** e = environ; *e != nullptr; ++e) {
    std::string entry = *e;
    if (entry.rfind("TALLOWBROOK_MCP_TOKEN=", 0) != 0 && entry.rfind("ASAN_OPTIONS=", 0) != 0) {
      envText.push_back(entry);
    }
  }
  std::vector<char*> envp;
  for (auto& entry : envText) envp.push_back(entry.data());
  envp.push_back(nullptr);
  std::string helper = HELPER_PATH, word = "mcp-bridge", target = url;
  char* argv[] = {helper.data(), word.data(), target.data(), nullptr};

  MeasuredRun run;
  int in[2], out[2];
  if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) {
    ADD_FAILURE() << "pipe failed";
    return run;
  }
  pid_t pid = fork();
  if (pid == 0) {
    dup2(in[0], 0);
    dup2(out[1], 1);
    execve(argv[0], argv, envp.data());
    _exit(127);
  }
  close(in[0]);
  close(out[1]);
  std::thread writer([&] {
    for (const std::string* part : {&input, &last}) {
      size_t done = 0;
      while (done < part->size()) {
        ssize_t n = write(in[1], part->data() + done, part->size() - done);
        if (n <= 0) return;
        done += size_t(n);
      }
    }
  });
  const std::string endId = "\"id\":\"end\"";
  auto deadline = std::chrono::steady_clock::now() + 60s;
  while (run.out.find(endId) == std::string::npos && std::chrono::steady_clock::now() < deadline) {
    pollfd ready{out[0], POLLIN, 0};
    if (poll(&ready, 1, 1000) <= 0) continue;
    char chunk[65536];
    ssize_t n = read(out[0], chunk, sizeof chunk);
    if (n <= 0) break;
    run.out.append(chunk, size_t(n));
  }
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmHWM:", 0) == 0) run.peakKib = std::atol(line.c_str() + 6);
  }
  writer.join();
  close(in[1]);
  char chunk[65536];
  for (ssize_t n; (n = read(out[0], chunk, sizeof chunk)) > 0;) run.out.append(chunk, size_t(n));
  close(out[0]);
  int wstatus = 0;
  waitpid(pid, &wstatus, 0);
  if (WIFEXITED(wstatus)) run.status = WEXITSTATUS(wstatus);
  EXPECT_NE(run.out.find(endId), std::string::npos) << "the last line was never answered";
  return run;
}

// What a run may use at its peak, whatever its input: less than three 10 MiB lines held at once
// would need.
constexpr long kPeakBoundKib = 100 * 1024;

TEST(McpBridgeCli, ATenMebibyteLineIsPostedWholeInBoundedMemory) {
  std::string text(10 * 1024 * 1024, 'x');
  std::string line =
      R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"t":")" + text + "\"}}";
  LoopbackHttpServer server([](const HttpRequest& r) {
    if (r.body.size() < 1000) return respond(500);
    return respond(200, "{\"jsonrpc\":\"2.0\",\"id\":1,\"result\":{\"size\":" +
                            std::to_string(r.body.size()) + "}}");
  });
  auto run = runMeasured(server.url(), line + "\n" + line + "\n" + line + "\n");
  EXPECT_EQ(run.status, 0);
  auto lines = jsonLines(run.out);
  ASSERT_EQ(lines.size(), 4u);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(lines[i]["result"]["size"], line.size());
  auto requests = server.requests();
  ASSERT_EQ(requests.size(), 4u);
  EXPECT_TRUE(requests[2].body == line);
  // Three 10 MiB lines in a row do not add up.
  EXPECT_GT(run.peakKib, 0);
  EXPECT_LT(run.peakKib, kPeakBoundKib);
}

TEST(McpBridgeCli, InvalidUtf8IsPostedAsReplacementCharacters) {
  LoopbackHttpServer server([](const HttpRequest&) { return respond(500); });
  auto run = bridge(server.url(), "{\"jsonrpc\":\"2.0\",\"id\":8,\"method\":\"a\xC0\xff\"}\n");
  ASSERT_EQ(server.requests().size(), 1u);
  EXPECT_EQ(server.requests()[0].body,
            "{\"jsonrpc\":\"2.0\",\"id\":8,\"method\":\"a\xEF\xBF\xBD\xEF\xBF\xBD\"}");
  auto lines = jsonLines(run.out);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0], errorFor(8, "Tallowbrook answered HTTP 500."));
}

TEST(McpBridgeCli, NulBytesArePostedAndTheLineIsMalformed) {
  LoopbackHttpServer server([](const HttpRequest&) { return respond(400); });
  std::string line("{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"x\0y\"}", 36);
  auto run = bridge(server.url(), line + "\n" + std::string(3, '\0') + "\n");
  auto requests = server.requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].body, line);
  EXPECT_EQ(requests[1].body, std::string(3, '\0'));
  auto lines = jsonLines(run.out);
  ASSERT_EQ(lines.size(), 2u);
  for (const auto& l : lines) EXPECT_EQ(l, errorFor(nullptr, "Tallowbrook answered HTTP 400."));
}

TEST(McpBridgeCli, AMillionNestedBracketsAreMalformed) {
  LoopbackHttpServer server([](const HttpRequest&) { return respond(400); });
  std::string open(1000000, '[');
  std::string balanced = open + std::string(1000000, ']');
  std::string deepId = R"({"jsonrpc":"2.0","method":"x","id":)" + balanced + "}";
  auto run =
      runMeasured(server.url(), open + "\n" + balanced + "\n" + deepId + "\n" + request(4) + "\n");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(server.requests().size(), 5u);
  auto lines = jsonLines(run.out);
  ASSERT_EQ(lines.size(), 5u);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(lines[i], errorFor(nullptr, "Tallowbrook answered HTTP 400."));
  }
  EXPECT_EQ(lines[3], errorFor(4, "Tallowbrook answered HTTP 400."));
  EXPECT_EQ(lines[4], errorFor("end", "Tallowbrook answered HTTP 400."));
  EXPECT_GT(run.peakKib, 0);
  EXPECT_LT(run.peakKib, kPeakBoundKib);
}

TEST(McpBridgeCli, BinaryNoiseNeverStopsTheBridge) {
  std::mt19937 random(20240611);
  std::string noise;
  for (int i = 0; i < 4 * 1024 * 1024; ++i) noise.push_back(static_cast<char>(random() & 0xff));
  LoopbackHttpServer server([](const HttpRequest&) { return respond(400); });
  auto run = runMeasured(server.url(), noise + "\n");
  EXPECT_EQ(run.status, 0);
  // One error line per line that was posted, the last request's included.
  auto lines = rawLines(run.out);
  EXPECT_EQ(lines.size(), server.requests().size());
  EXPECT_GT(lines.size(), 10000u);
  for (const auto& line : lines) {
    auto doc = json::parse(line);
    EXPECT_EQ(doc["error"]["message"], "Tallowbrook answered HTTP 400.");
  }
  EXPECT_GT(run.peakKib, 0);
  EXPECT_LT(run.peakKib, kPeakBoundKib);
}

}  // namespace
