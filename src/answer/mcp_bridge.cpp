#include "answer/mcp_bridge.h"

#include <unistd.h>

#include <cstdlib>
#include <memory>

#include "answer/line_reader.h"
#include "answer/mcp_classify.h"
#include "answer/mcp_endpoint.h"
#include "answer/mcp_reply.h"
#include "answer/mcp_token.h"
#include "answer/utf8_text.h"
#include "cli/fail.h"
#include "cli/module.h"

namespace tallowbrook::McpBridge {

const char* const kUsage = "usage: mcp-bridge http://127.0.0.1:<port>/mcp";

void run(const std::vector<std::string>& args) {
  if (args.empty()) fail(kUsage);
  auto url = parseUrl(args.front());
  if (!url || !isAppEndpoint(*url)) fail(kUsage);

  const char* token = std::getenv("TALLOWBROOK_MCP_TOKEN");
  // libcurl is loaded only now, so no other command pays for it.
  void* module = loadModule("http");
  auto factory =
      reinterpret_cast<HttpClientFactory>(moduleSymbol(module, "http", kHttpClientFactorySymbol));
  std::unique_ptr<HttpClient> client(
      factory(args.front().c_str(), bearerToken(token ? token : "").c_str()));
  if (!client) fail("mcp-bridge: the HTTP client could not be started");

  relay(STDIN_FILENO, *client);
}

void relay(int inputFd, HttpClient& client) {
  LineReader reader(inputFd);
  std::string_view raw;
  while (reader.next(&raw)) {
    std::string repaired;
    if (!isValidUtf8(raw)) repaired = repairUtf8(raw);
    std::string_view line = trimBlanksAndTabs(repaired.empty() ? raw : repaired);
    if (line.empty()) continue;
    Kind kind = classify(line);
    Outcome outcome = client.post(line);
    auto printed = reply(kind, outcome.status, outcome.body, outcome.failure);
    if (printed) writeTextLine(*printed);
  }
}

}  // namespace tallowbrook::McpBridge
