// The bridge's HTTP client: posts one JSON-RPC line to the application and waits for the
// answer. The real client (libcurl) lives in the http module; tests use fakes.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tallowbrook::McpBridge {

// The result of one HTTP exchange.
struct Outcome {
  std::optional<std::string> body;     // the response body; absent when the exchange failed
  long status = 0;                     // the HTTP status code; 0 without an HTTP response
  std::optional<std::string> failure;  // the transport error's description; absent on success
};

class HttpClient {
 public:
  virtual ~HttpClient() = default;

  // POSTs `body` unchanged to the endpoint the client was made for, with the bridge's headers,
  // and blocks until the exchange completes or fails. Never throws: every failure (refused
  // connection, closed connection, no progress for the time limit) comes back as `failure`.
  // One exchange at a time; the thread that made the client calls it.
  virtual Outcome post(std::string_view body) = 0;
};

// The http module's entry: makes the client for `url` (passed unchanged to the HTTP library)
// sending "Authorization: Bearer <token>" (a token checked by bearerToken, mcp_token.h: no
// control characters). Returns null if the HTTP library cannot start. The
// caller owns the result and deletes it.
using HttpClientFactory = HttpClient* (*)(const char* url, const char* token);
inline constexpr const char* kHttpClientFactorySymbol = "tallowbrook_mcp_http_client";

}  // namespace tallowbrook::McpBridge
