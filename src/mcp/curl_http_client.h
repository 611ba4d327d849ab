// The bridge's HTTP client on libcurl. Built into the http module, so only mcp-bridge loads
// libcurl.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "mcp/mcp_http_client.h"

namespace tallowbrook::McpBridge {

// An exchange that sends and receives nothing for this long fails (the clock restarts with
// every byte that moves either way, as a request time-out interval does).
inline constexpr std::chrono::milliseconds kNoProgressLimit{120000};

// A client for `url` (handed to libcurl unchanged) holding one libcurl easy handle for all its
// exchanges, so the connection to the application is kept alive between lines. Each POST sends
// exactly Content-Type: application/json, Accept: application/json, text/event-stream and
// Authorization: "Bearer " + token (the bare "Bearer " for an empty token), besides Host and
// Content-Length; no proxy, cookies, redirects or credentials from the environment. A failed
// exchange throws TransportError with libcurl's detailed error text. Returns null when libcurl
// cannot make a handle. Call from one thread; the client is not thread-safe.
std::unique_ptr<HttpClient> makeCurlHttpClient(
    const std::string& url, const std::string& token,
    std::chrono::milliseconds noProgressLimit = kNoProgressLimit);

}  // namespace tallowbrook::McpBridge
