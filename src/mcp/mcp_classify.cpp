#include "mcp/mcp_classify.h"

namespace tallowbrook::McpBridge {
namespace {

struct TooDeep {};

}  // namespace

Kind classify(std::string_view line) {
  Json doc;
  try {
    // The callback sees each array or object as it opens, with the number of enclosing ones,
    // and stops the parse before deep nesting can exhaust the stack later on.
    doc = Json::parse(line, [](int depth, Json::parse_event_t event, Json&) {
      if ((event == Json::parse_event_t::object_start ||
           event == Json::parse_event_t::array_start) &&
          depth >= kMaxJsonDepth) {
        throw TooDeep{};
      }
      return true;
    });
  } catch (const TooDeep&) {
    return Kind::malformed();
  } catch (const Json::exception&) {
    return Kind::malformed();
  }
  if (!doc.is_object()) return Kind::malformed();

  auto method = doc.find("method");
  auto id = doc.find("id");
  if (method != doc.end()) {
    auto version = doc.find("jsonrpc");
    if (version == doc.end() || !version->is_string() ||
        version->get_ref<const std::string&>() != "2.0") {
      return Kind::malformed();
    }
    if (!method->is_string()) return Kind::malformed();
    if (id != doc.end()) return Kind::request(std::move(*id));
    return Kind::notification();
  }
  if (id == doc.end()) return Kind::malformed();
  if (doc.contains("result") || doc.contains("error")) return Kind::notification();
  return Kind::malformed();
}

}  // namespace tallowbrook::McpBridge
