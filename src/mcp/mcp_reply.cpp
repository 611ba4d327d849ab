#include "mcp/mcp_reply.h"

#include <algorithm>

#include "text/utf8_text.h"

namespace tallowbrook::McpBridge {

std::optional<std::string> error(const Json& id, std::string_view message) {
  Json response;
  response["jsonrpc"] = "2.0";
  response["id"] = id;
  response["error"] = {{"code", kErrorCode}, {"message", message}};
  return serializeJson(response);
}

namespace {

// The id an error answers: the request's, null for a malformed line.
Json idOf(const Kind& kind) {
  return kind.tag == Kind::Tag::request ? kind.id : Json(nullptr);
}

}  // namespace

std::optional<std::string> reply(const Kind& kind, const Response& response) {
  const std::string& body = response.body;
  if (response.status == 200 && !body.empty() && isValidUtf8(body)) {
    std::string line;
    line.reserve(body.size());
    std::copy_if(body.begin(), body.end(), std::back_inserter(line),
                 [](char c) { return c != '\n'; });
    return line;
  }
  if (kind.tag == Kind::Tag::notification) return std::nullopt;

  std::string message;
  if (response.status == 503) {
    message = "Sharing with AI apps is switched off in Tallowbrook.";
  } else if (response.status == 401) {
    message =
        "Tallowbrook refused the token. Copy the Claude Desktop setup again from Tallowbrook's "
        "Settings; the token was probably replaced.";
  } else if (response.status == 202) {
    return std::nullopt;
  } else {
    message = "Tallowbrook answered HTTP " + std::to_string(response.status) + ".";
  }
  return error(idOf(kind), message);
}

std::optional<std::string> unreachable(const Kind& kind, std::string_view description) {
  if (kind.tag == Kind::Tag::notification) return std::nullopt;
  return error(idOf(kind),
               "Tallowbrook is not reachable (" + std::string(description) +
                   "). Open the app and check Settings \u2192 Answering \u2192 Claude and other "
                   "AI apps.");
}

}  // namespace tallowbrook::McpBridge
