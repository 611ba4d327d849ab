// mcp-bridge's latency beside a direct HTTP client, measured in the same run against the same
// MCP server (the official SDK's, tests/mcp/app_server.mjs, on 127.0.0.1):
//   - spawn to initialize: from spawning the bridge until its answer to `initialize` has been
//     read, beside a direct client's `initialize` on a fresh connection;
//   - per call: CALLS sequential tools/call echo requests through one running bridge and
//     through one kept-alive direct connection, interleaved so machine noise hits both alike.
//
//   bench-mcp-bridge HELPER APP_SERVER_SCRIPT [CALLS]
#include <curl/curl.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

const char* kToken = "bench-token";
constexpr int kSpawnRounds = 40;
constexpr int kWarmUpCalls = 50;

[[noreturn]] void die(const std::string& message) {
  std::fprintf(stderr, "bench-mcp-bridge: %s\n", message.c_str());
  std::exit(2);
}

double millisSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// A child process with pipes on its standard input and output.
struct Child {
  pid_t pid = -1;
  int in = -1;   // we write
  int out = -1;  // we read
  std::string buffered;

  void writeLine(const std::string& line) {
    std::string bytes = line + "\n";
    size_t done = 0;
    while (done < bytes.size()) {
      ssize_t n = ::write(in, bytes.data() + done, bytes.size() - done);
      if (n <= 0) die("write to child failed");
      done += static_cast<size_t>(n);
    }
  }

  // The next line, waiting at most 30 s.
  std::string readLine() {
    for (;;) {
      auto feed = buffered.find('\n');
      if (feed != std::string::npos) {
        std::string line = buffered.substr(0, feed);
        buffered.erase(0, feed + 1);
        return line;
      }
      pollfd p{out, POLLIN, 0};
      if (poll(&p, 1, 30000) <= 0) die("no answer from child within 30 s");
      char chunk[65536];
      ssize_t n = ::read(out, chunk, sizeof chunk);
      if (n <= 0) die("child closed its output");
      buffered.append(chunk, static_cast<size_t>(n));
    }
  }

  // Closes its input and waits for it to end.
  int finish() {
    ::close(in);
    int status = 0;
    waitpid(pid, &status, 0);
    ::close(out);
    return status;
  }
};

Child spawn(const std::vector<std::string>& words, const std::vector<std::string>& extraEnv) {
  int in[2], out[2];
  if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) die("pipe failed");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[0], 0);
  posix_spawn_file_actions_adddup2(&actions, out[1], 1);
  std::vector<char*> argv;
  for (const auto& word : words) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  std::vector<std::string> envText(extraEnv);
  for (char** e = environ; *e != nullptr; ++e) envText.emplace_back(*e);
  std::vector<char*> env;
  for (auto& entry : envText) env.push_back(entry.data());
  env.push_back(nullptr);
  Child child;
  if (posix_spawnp(&child.pid, argv[0], &actions, nullptr, argv.data(), env.data()) != 0) {
    die("cannot run " + words[0]);
  }
  posix_spawn_file_actions_destroy(&actions);
  ::close(in[0]);
  ::close(out[1]);
  child.in = in[1];
  child.out = out[0];
  return child;
}

// A direct client: one libcurl handle, the bridge's headers, kept alive.
class DirectClient {
 public:
  explicit DirectClient(const std::string& url) : easy_(curl_easy_init()) {
    std::string authorization = std::string("Authorization: Bearer ") + kToken;
    for (const char* header :
         {"Content-Type: application/json", "Accept: application/json, text/event-stream",
          authorization.c_str(), "Expect:"}) {
      headers_ = curl_slist_append(headers_, header);
    }
    curl_easy_setopt(easy_, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy_, CURLOPT_HTTPHEADER, headers_);
    curl_easy_setopt(easy_, CURLOPT_PROXY, "");
    curl_easy_setopt(easy_, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION, &DirectClient::onBody);
    curl_easy_setopt(easy_, CURLOPT_WRITEDATA, &body_);
  }
  ~DirectClient() {
    curl_easy_cleanup(easy_);
    curl_slist_free_all(headers_);
  }
  DirectClient(const DirectClient&) = delete;
  DirectClient& operator=(const DirectClient&) = delete;

  std::string post(const std::string& line) {
    body_.clear();
    curl_easy_setopt(easy_, CURLOPT_POSTFIELDSIZE, static_cast<long>(line.size()));
    curl_easy_setopt(easy_, CURLOPT_POSTFIELDS, line.c_str());
    if (curl_easy_perform(easy_) != CURLE_OK) die("direct request failed");
    return body_;
  }

 private:
  static size_t onBody(char* data, size_t size, size_t count, void* body) {
    static_cast<std::string*>(body)->append(data, size * count);
    return size * count;
  }
  CURL* easy_;
  curl_slist* headers_ = nullptr;
  std::string body_;
};

std::string initializeRequest(int id) {
  return R"({"jsonrpc":"2.0","id":)" + std::to_string(id) +
         R"(,"method":"initialize","params":{"protocolVersion":"2025-06-18","capabilities":{},)"
         R"("clientInfo":{"name":"bench","version":"1.0.0"}}})";
}

std::string echoRequest(int id) {
  return R"({"jsonrpc":"2.0","id":)" + std::to_string(id) +
         R"(,"method":"tools/call","params":{"name":"echo","arguments":{"text":"hello \u00e9 /"}}})";
}

// The answer must be the result for request `id`.
void expectResult(const std::string& answer, int id) {
  std::string idText = "\"id\":" + std::to_string(id);
  if (answer.find(idText) == std::string::npos || answer.find("\"result\"") == std::string::npos) {
    die("unexpected answer for id " + std::to_string(id) + ": " + answer.substr(0, 300));
  }
}

double percentile(std::vector<double> values, double p) {
  std::sort(values.begin(), values.end());
  size_t rank = static_cast<size_t>(std::ceil(p / 100.0 * values.size()));
  return values[std::min(values.size() - 1, rank == 0 ? 0 : rank - 1)];
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s HELPER APP_SERVER_SCRIPT [CALLS]\n", argv[0]);
    return 2;
  }
  const std::string helper = argv[1];
  const int calls = argc > 3 ? std::atoi(argv[3]) : 500;
  if (calls < 1) die("CALLS must be at least 1");
  signal(SIGPIPE, SIG_IGN);
  curl_global_init(CURL_GLOBAL_DEFAULT);

  Child app = spawn({"node", argv[2]}, {std::string("TALLOWBROOK_MCP_TOKEN=") + kToken});
  std::string ready = app.readLine();
  auto colon = ready.find(':');
  if (ready.rfind("{\"port\":", 0) != 0 || colon == std::string::npos) die("app said: " + ready);
  const std::string url =
      "http://127.0.0.1:" + std::to_string(std::atoi(ready.c_str() + colon + 1)) + "/mcp";
  const std::string token = std::string("TALLOWBROOK_MCP_TOKEN=") + kToken;

  // Spawn to initialize, beside a direct initialize on a fresh connection; alternating.
  std::vector<double> spawnMs, directInitMs;
  for (int round = 0; round < kSpawnRounds; ++round) {
    auto start = Clock::now();
    Child bridge = spawn({helper, "mcp-bridge", url}, {token});
    bridge.writeLine(initializeRequest(1));
    std::string answer = bridge.readLine();
    spawnMs.push_back(millisSince(start));
    expectResult(answer, 1);
    if (bridge.finish() != 0) die("the bridge did not end with status 0");

    start = Clock::now();
    {
      DirectClient direct(url);
      answer = direct.post(initializeRequest(1));
    }
    directInitMs.push_back(millisSince(start));
    expectResult(answer, 1);
  }

  // Sequential echo calls through one bridge and one direct connection, interleaved.
  Child bridge = spawn({helper, "mcp-bridge", url}, {token});
  bridge.writeLine(initializeRequest(0));
  expectResult(bridge.readLine(), 0);
  bridge.writeLine(R"({"jsonrpc":"2.0","method":"notifications/initialized"})");
  DirectClient direct(url);
  expectResult(direct.post(initializeRequest(0)), 0);

  std::vector<double> bridgeMs, directMs;
  for (int i = 1; i <= kWarmUpCalls + calls; ++i) {
    auto timeBridge = [&] {
      auto start = Clock::now();
      bridge.writeLine(echoRequest(i));
      std::string answer = bridge.readLine();
      double ms = millisSince(start);
      expectResult(answer, i);
      return ms;
    };
    auto timeDirect = [&] {
      auto start = Clock::now();
      std::string answer = direct.post(echoRequest(i));
      double ms = millisSince(start);
      expectResult(answer, i);
      return ms;
    };
    double b, d;
    if (i % 2) {
      b = timeBridge();
      d = timeDirect();
    } else {
      d = timeDirect();
      b = timeBridge();
    }
    if (i > kWarmUpCalls) {
      bridgeMs.push_back(b);
      directMs.push_back(d);
    }
  }
  if (bridge.finish() != 0) die("the bridge did not end with status 0");
  app.finish();

  double spawnMedian = percentile(spawnMs, 50);
  double overhead = percentile(bridgeMs, 50) - percentile(directMs, 50);
  // Each bridge call beside the direct call made right next to it.
  std::vector<double> pairDiffs;
  for (size_t i = 0; i < bridgeMs.size(); ++i) pairDiffs.push_back(bridgeMs[i] - directMs[i]);
  double pairedOverhead = percentile(pairDiffs, 50);
  std::printf("mcp-bridge against the MCP SDK server on 127.0.0.1 (%d spawns, %d echo calls)\n",
              kSpawnRounds, calls);
  std::printf("%-36s %9s %9s\n", "", "median", "p99");
  std::printf("%-36s %7.2f ms %6.2f ms\n", "spawn bridge to initialize answered", spawnMedian,
              percentile(spawnMs, 99));
  std::printf("%-36s %7.2f ms %6.2f ms\n", "direct initialize, fresh connection",
              percentile(directInitMs, 50), percentile(directInitMs, 99));
  std::printf("%-36s %7.3f ms %6.3f ms\n", "echo call through the bridge", percentile(bridgeMs, 50),
              percentile(bridgeMs, 99));
  std::printf("%-36s %7.3f ms %6.3f ms\n", "echo call, direct HTTP client",
              percentile(directMs, 50), percentile(directMs, 99));
  std::printf(
      "per-call overhead of the bridge: %.3f ms median minus median (%.2fx the direct "
      "call), %.3f ms median of paired differences\n",
      overhead, percentile(bridgeMs, 50) / percentile(directMs, 50), pairedOverhead);
  bool overheadMet = overhead <= 0.3 && pairedOverhead <= 0.3;
  std::printf("bar: spawn to initialize <= 20 ms: %s; median overhead <= 0.3 ms: %s\n",
              spawnMedian <= 20 ? "met" : "NOT met", overheadMet ? "met" : "NOT met");
  curl_global_cleanup();
  return 0;
}
