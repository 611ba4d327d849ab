#include "mcp/mcp_bridge.h"

#include <unistd.h>

#include <cstdlib>
#include <memory>

#include "base/fail.h"
#include "base/module.h"
#include "mcp/mcp_classify.h"
#include "mcp/mcp_endpoint.h"
#include "mcp/mcp_reply.h"
#include "mcp/mcp_token.h"
#include "text/line_reader.h"
#include "text/utf8_text.h"

namespace tallowbrook::McpBridge {

const char* const kUsage = "usage: mcp-bridge http://127.0.0.1:<port>/mcp";

void run(const std::vector<std::string>& args) {
  if (args.empty()) fail(kUsage);
  auto url = parseUrl(args.front());
  if (!url || !isAppEndpoint(*url)) fail(kUsage);

  const char* token = std::getenv("TALLOWBROOK_MCP_TOKEN");
  // libcurl is loaded only now, so no other command pays for it.
  auto factory = moduleEntry<HttpClientFactory>("mcp", kHttpClientFactorySymbol);
  std::unique_ptr<HttpClient> client(
      factory(args.front().c_str(), bearerToken(token ? token : "").c_str()));
  if (!client) fail("mcp-bridge: the HTTP client could not be started");

  relay(STDIN_FILENO, *client);
}

namespace {

// The line to print for `line` of kind `kind`, posted through `client`.
std::optional<std::string> exchange(HttpClient& client, const Kind& kind, std::string_view line) {
  Response response;
  try {
    response = client.post(line);
  } catch (const TransportError& error) {
    return unreachable(kind, error.message());
  }
  return reply(kind, response);
}

}  // namespace

void relay(int inputFd, HttpClient& client) {
  Text::LineReader reader(inputFd);
  std::string_view raw;
  while (reader.next(&raw)) {
    std::string repaired;
    if (!isValidUtf8(raw)) repaired = repairUtf8(raw);
    std::string_view line = Text::trimBlanksAndTabs(repaired.empty() ? raw : repaired);
    if (line.empty()) continue;
    Kind kind = classify(line);
    auto printed = exchange(client, kind, line);
    if (printed) writeTextLine(*printed);
  }
}

}  // namespace tallowbrook::McpBridge
