// What the bridge prints for one exchange with the application.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/out.h"
#include "mcp/mcp_classify.h"

namespace tallowbrook::McpBridge {

// The JSON-RPC error code of every error the bridge writes.
inline constexpr int kErrorCode = -32000;

// One compact JSON-RPC error response, {"jsonrpc":"2.0","id":id,"error":{"code":-32000,
// "message":message}}, written as every JSON line of the helper is ('/' as "\/"). Nothing when
// `id` cannot be serialised. Pure; any thread.
std::optional<std::string> error(const Json& id, std::string_view message);

// The line to print after posting a line of kind `kind`, given the HTTP status (0 without an
// HTTP response), the response body (absent when the exchange failed) and the transport
// failure's description (absent when the exchange completed). First matching rule:
//   1. no failure, status 200, a non-empty body that is valid UTF-8: the body with every line
//      feed removed (whatever the kind);
//   2. a notification: nothing;
//   3. an error for the request's id (null for a malformed line): "Tallowbrook is not
//      reachable (F). ..." for a failure F, the sharing message for 503, the token message for
//      401, nothing for 202, "Tallowbrook answered HTTP S." for any other status S.
// The returned text holds no line feed. Pure; any thread.
std::optional<std::string> reply(const Kind& kind, long status,
                                 const std::optional<std::string>& body,
                                 const std::optional<std::string>& failure);

}  // namespace tallowbrook::McpBridge
