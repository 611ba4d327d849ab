// The bridge's endpoint argument: parsing the URL and deciding whether the bridge may talk to
// it (the application's MCP endpoint on this machine, nothing else).
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tallowbrook::McpBridge {

// The parts of a URL (generic URI syntax). A part that is absent from the text is nullopt; a
// part that is present but empty ("http://h/mcp?") is an empty string.
struct Url {
  std::optional<std::string> scheme;    // as written (case kept)
  std::optional<std::string> user;      // before ':' in the user information
  std::optional<std::string> password;  // after ':' in the user information
  std::optional<std::string> host;      // as written; an IPv6 literal keeps its brackets
  std::optional<long long> port;        // absent when missing or empty ("h:/")
  std::optional<std::string> path;      // percent-decoded, one trailing '/' dropped unless the
                                        // path is "/"; absent when it does not decode to UTF-8
  std::optional<std::string> query;
  std::optional<std::string> fragment;
};

// Parses `text` as a URL or relative reference. Nothing when it holds a character that a URL
// cannot hold (blanks, control characters, non-ASCII bytes, "<>\"{}|\\^`"), a '%' not followed
// by two hex digits, a port that is not decimal digits or has more than 18 of them, or a
// bracket that does not close. Pure; any thread.
std::optional<Url> parseUrl(std::string_view text);

// Whether the bridge may talk to `url`. All of these must hold, checked in this order:
// scheme exactly "http"; host exactly "127.0.0.1" or "localhost"; a port of at least 1 (no
// upper bound is checked); path exactly "/mcp"; no user, password, query or fragment.
// Pure; any thread.
bool isAppEndpoint(const Url& url);

}  // namespace tallowbrook::McpBridge
