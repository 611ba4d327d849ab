// What the bridge prints for one exchange with the application.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/out.h"
#include "mcp/mcp_classify.h"
#include "mcp/mcp_http_client.h"

namespace tallowbrook::McpBridge {

// The JSON-RPC error code of every error the bridge writes.
inline constexpr int kErrorCode = -32000;

// One compact JSON-RPC error response, {"jsonrpc":"2.0","id":id,"error":{"code":-32000,
// "message":message}}, written as every JSON line of the helper is ('/' as "\/"). Nothing when
// `id` cannot be serialised. Pure; any thread.
std::optional<std::string> error(const Json& id, std::string_view message);

// The line to print after posting a line of kind `kind` and getting `response` (an exchange that
// completed, whatever its status). First matching rule:
//   1. status 200 and a non-empty body that is valid UTF-8: the body with every line feed
//      removed (whatever the kind);
//   2. a notification: nothing;
//   3. an error for the request's id (null for a malformed line): the sharing message for 503,
//      the token message for 401, nothing for 202, "Tallowbrook answered HTTP S." for any other
//      status S.
// The returned text holds no line feed. Pure; any thread.
std::optional<std::string> reply(const Kind& kind, const Response& response);

// The line to print after posting a line of kind `kind` failed in transport with `description`
// (a TransportError's): nothing for a notification, else an error for the request's id (null
// for a malformed line): "Tallowbrook is not reachable (<description>). Open the app and check
// Settings → Answering → Claude and other AI apps." The returned text holds no line feed.
// Pure; any thread.
std::optional<std::string> unreachable(const Kind& kind, std::string_view description);

}  // namespace tallowbrook::McpBridge
