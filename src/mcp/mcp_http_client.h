// The bridge's HTTP client: posts one JSON-RPC line to the application and waits for the
// answer. The real client (libcurl) lives in the http module; tests use fakes.
#pragma once

#include <string>
#include <string_view>

#include "base/error.h"

namespace tallowbrook::McpBridge {

// The answer to one completed HTTP exchange.
struct Response {
  std::string body;  // the response body, possibly empty
  long status = 0;   // the HTTP status code; 0 when the library saw none
};

// An exchange that failed in transport (refused connection, closed connection, no progress for
// the time limit): `what()` is the transport's own description of the failure.
class TransportError : public Error {
 public:
  using Error::Error;
};

class HttpClient {
 public:
  virtual ~HttpClient() = default;

  // POSTs `body` unchanged to the endpoint the client was made for, with the bridge's headers,
  // blocks until the exchange completes and returns the response, whatever its status. Throws
  // TransportError when the exchange fails (refused connection, closed connection, no progress
  // for the time limit); the client can be used again after it. One exchange at a time; the
  // thread that made the client calls it.
  virtual Response post(std::string_view body) = 0;
};

// The http module's entry: makes the client for `url` (passed unchanged to the HTTP library)
// sending "Authorization: Bearer <token>" (a token checked by bearerToken, mcp_token.h: no
// control characters). Returns null if the HTTP library cannot start. The
// caller owns the result and deletes it.
using HttpClientFactory = HttpClient* (*)(const char* url, const char* token);
inline constexpr const char* kHttpClientFactorySymbol = "tallowbrook_mcp_http_client";

}  // namespace tallowbrook::McpBridge
