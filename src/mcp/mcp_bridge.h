// mcp-bridge: relays the JSON-RPC lines of an MCP client on standard input to the
// application's HTTP endpoint on this machine, and prints the answers on standard output.
#pragma once

#include <string>
#include <vector>

#include "mcp/mcp_http_client.h"

namespace tallowbrook::McpBridge {

// "usage: mcp-bridge http://127.0.0.1:<port>/mcp".
extern const char* const kUsage;

// `args` are the words after "mcp-bridge". Fails with the usage line unless the first word is
// the application's endpoint (`isAppEndpoint`); further words are ignored. Reads the token from
// TALLOWBROOK_MCP_TOKEN (empty when unset), loads the http module and relays standard input
// until it ends, then returns. Main thread only.
void run(const std::vector<std::string>& args);

// The relay loop: reads lines from `inputFd` until it ends; each line is decoded as UTF-8
// (invalid bytes become U+FFFD) and trimmed of blanks and tabs; an empty line is skipped;
// any other line is classified, posted through `client` unchanged, and the `reply` for the
// response (or the `unreachable` line when the post throws TransportError), if any, is written
// as one line on standard output (under `Out::lock()`). Lines are
// relayed strictly one at a time; no failed exchange or closed output ends the loop.
// The calling thread is the only one that uses `client`.
void relay(int inputFd, HttpClient& client);

}  // namespace tallowbrook::McpBridge
