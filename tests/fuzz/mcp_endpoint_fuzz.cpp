// Fuzzes the endpoint argument's parser and check: any text, and never an accepted endpoint
// that is not plain http to 127.0.0.1 or localhost with a port and the /mcp path.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "fuzz_check.h"
#include "mcp/mcp_endpoint.h"

namespace {

bool startsWith(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  auto url = tallowbrook::McpBridge::parseUrl(text);
  if (!url || !tallowbrook::McpBridge::isAppEndpoint(*url)) return 0;
  fuzz::check(startsWith(text, "http://127.0.0.1:") || startsWith(text, "http://localhost:"));
  fuzz::check(text.find_first_of("?#@ ") == std::string_view::npos);
  fuzz::check(*url->port >= 1);
  fuzz::check(*url->path == "/mcp");
  return 0;
}
