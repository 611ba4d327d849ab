#include "mcp/mcp_token.h"

namespace tallowbrook::McpBridge {

std::string bearerToken(std::string_view raw) {
  constexpr std::string_view kAround = " \t\r\n";
  size_t first = raw.find_first_not_of(kAround);
  if (first == std::string_view::npos) return {};
  std::string_view token = raw.substr(first, raw.find_last_not_of(kAround) + 1 - first);
  for (char c : token) {
    auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F) return {};
  }
  return std::string(token);
}

}  // namespace tallowbrook::McpBridge
