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

std::optional<std::string> reply(const Kind& kind, long status,
                                 const std::optional<std::string>& body,
                                 const std::optional<std::string>& failure) {
  if (!failure && status == 200 && body && !body->empty() && isValidUtf8(*body)) {
    std::string line;
    line.reserve(body->size());
    std::copy_if(body->begin(), body->end(), std::back_inserter(line),
                 [](char c) { return c != '\n'; });
    return line;
  }
  if (kind.tag == Kind::Tag::notification) return std::nullopt;

  std::string message;
  if (failure) {
    message =
        "Tallowbrook is not reachable (" + *failure +
        "). Open the app and check Settings \u2192 Answering \u2192 Claude and other AI apps.";
  } else if (status == 503) {
    message = "Sharing with AI apps is switched off in Tallowbrook.";
  } else if (status == 401) {
    message =
        "Tallowbrook refused the token. Copy the Claude Desktop setup again from Tallowbrook's "
        "Settings; the token was probably replaced.";
  } else if (status == 202) {
    return std::nullopt;
  } else {
    message = "Tallowbrook answered HTTP " + std::to_string(status) + ".";
  }
  const Json& id = kind.tag == Kind::Tag::request ? kind.id : Json(nullptr);
  return error(id, message);
}

}  // namespace tallowbrook::McpBridge
