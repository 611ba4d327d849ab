// What one line from the MCP client is: a request that may get an error back, a message that
// must never be answered, or something that is not a JSON-RPC message at all.
#pragma once

#include <string_view>

#include "base/out.h"

namespace tallowbrook::McpBridge {

struct Kind {
  enum class Tag { request, notification, malformed };
  Tag tag = Tag::malformed;
  // For a request, the value of its "id" member exactly as parsed (number, string, null, or
  // any other JSON value); null otherwise.
  Json id;

  static Kind request(Json id) { return {Tag::request, std::move(id)}; }
  static Kind notification() { return {Tag::notification, nullptr}; }
  static Kind malformed() { return {Tag::malformed, nullptr}; }
};

// Nesting deeper than this many arrays and objects is not parsed: such a line is malformed.
inline constexpr int kMaxJsonDepth = 512;

// Classifies one trimmed line:
//   - not a JSON object (or not JSON, or nested deeper than kMaxJsonDepth): malformed;
//   - with "method": malformed unless "jsonrpc" is the string "2.0" and "method" is a string;
//     then a request carrying "id" when "id" is present (any value, null included), else a
//     notification;
//   - without "method": "id" together with "result" or "error" is a response from the client,
//     treated as a notification; anything else is malformed.
// A batch (a JSON array) is malformed. Pure; never throws; any thread.
Kind classify(std::string_view line);

}  // namespace tallowbrook::McpBridge
