// Fuzzes the bridge's per-line logic: classification of any line, and the line printed for any
// response (status, body) or transport failure. Input: one control byte, then the line, a line
// feed, the body.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "fuzz_check.h"
#include "mcp/mcp_classify.h"
#include "mcp/mcp_reply.h"
#include "text/utf8_text.h"

namespace {

using namespace tallowbrook;
using namespace tallowbrook::McpBridge;

const long kStatuses[] = {200, 202, 400, 401, 500, 503, 0,   204,
                          301, 404, 200, 200, 503, 401, 202, -1};

void checkClassification(std::string_view line, const Kind& kind) {
  if (kind.tag != Kind::Tag::request) {
    fuzz::check(kind.id.is_null());
    return;
  }
  // A request is an object with "jsonrpc":"2.0", a string "method" and the id it reports.
  Json doc = Json::parse(line);
  fuzz::check(doc.is_object());
  fuzz::check(doc.at("jsonrpc") == "2.0");
  fuzz::check(doc.at("method").is_string());
  fuzz::check(doc.at("id") == kind.id);
}

// What the relay prints for `kind`: unreachable() when the exchange failed with `failure`, else
// reply() for `response`.
void checkReply(const Kind& kind, const Response& response,
                const std::optional<std::string>& failure) {
  auto line = failure ? unreachable(kind, *failure) : reply(kind, response);
  const long status = response.status;
  const std::string& body = response.body;
  bool passesBody = !failure && status == 200 && !body.empty() && isValidUtf8(body);
  if (passesBody) {
    std::string expected;
    for (char c : body) {
      if (c != '\n') expected.push_back(c);
    }
    fuzz::check(line == expected);
    return;
  }
  if (kind.tag == Kind::Tag::notification || (!failure && status == 202)) {
    fuzz::check(!line);
    return;
  }
  fuzz::check(line.has_value());
  fuzz::check(line->find('\n') == std::string::npos);
  Json doc = Json::parse(*line);
  fuzz::check(doc.size() == 3);
  fuzz::check(doc.at("jsonrpc") == "2.0");
  fuzz::check(doc.at("id") == (kind.tag == Kind::Tag::request ? kind.id : Json(nullptr)));
  fuzz::check(doc.at("error").at("code") == kErrorCode);
  fuzz::check(doc.at("error").at("message").is_string());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const uint8_t control = data[0];
  std::string_view rest(reinterpret_cast<const char*>(data + 1), size - 1);
  auto feed = rest.find('\n');
  std::string_view line = rest.substr(0, feed);
  Response response;
  if (feed != std::string_view::npos) response.body = std::string(rest.substr(feed + 1));
  response.status = kStatuses[control & 15];
  std::optional<std::string> failure;
  if (control & 16) failure = std::string(line.substr(0, 40));

  // The line as the relay sees it (valid UTF-8), and as raw bytes.
  std::string text = repairUtf8(line);
  fuzz::check(isValidUtf8(text));
  if (isValidUtf8(line)) fuzz::check(text == line);
  for (std::string_view candidate : {std::string_view(text), line}) {
    Kind kind = classify(candidate);
    checkClassification(candidate, kind);
    checkReply(kind, response, failure);
  }
  return 0;
}
