#include "answer/answer_request.h"

#include <cmath>

#include <nlohmann/json.hpp>

namespace tallowbrook::Answer {
namespace {

bool isWholeInt64(double value) {
  return std::trunc(value) == value && value >= -9223372036854775808.0 &&
         value < 9223372036854775808.0;
}

}  // namespace

std::optional<Request> decodeRequest(std::string_view input) {
  // Bounded nesting: a deeply nested request is refused without recursing through it.
  nlohmann::json doc;
  try {
    size_t depth = 0;
    bool tooDeep = false;
    doc = nlohmann::json::parse(input.begin(), input.end(),
                                [&](int, nlohmann::json::parse_event_t event, nlohmann::json&) {
                                  if (event == nlohmann::json::parse_event_t::object_start ||
                                      event == nlohmann::json::parse_event_t::array_start) {
                                    if (++depth > 512) tooDeep = true;
                                  } else if (event == nlohmann::json::parse_event_t::object_end ||
                                             event == nlohmann::json::parse_event_t::array_end) {
                                    --depth;
                                  }
                                  return !tooDeep;
                                });
    if (tooDeep) return std::nullopt;
  } catch (const nlohmann::json::exception&) {
    return std::nullopt;
  }
  if (!doc.is_object()) return std::nullopt;
  auto system = doc.find("system");
  auto user = doc.find("user");
  if (system == doc.end() || !system->is_string()) return std::nullopt;
  if (user == doc.end() || !user->is_string()) return std::nullopt;

  Request request;
  request.system = system->get<std::string>();
  request.user = user->get<std::string>();
  auto maxTokens = doc.find("maxTokens");
  if (maxTokens != doc.end() && !maxTokens->is_null()) {
    if (maxTokens->is_number_integer() && !maxTokens->is_number_unsigned()) {
      request.maxTokens = maxTokens->get<int64_t>();
    } else if (maxTokens->is_number_unsigned() &&
               maxTokens->get<uint64_t>() <= uint64_t(INT64_MAX)) {
      request.maxTokens = int64_t(maxTokens->get<uint64_t>());
    } else if (maxTokens->is_number_float() && isWholeInt64(maxTokens->get<double>())) {
      // 900.0 is the number 900, as a JSON reader of numbers sees it.
      request.maxTokens = int64_t(maxTokens->get<double>());
    } else {
      return std::nullopt;
    }
  }
  return request;
}

}  // namespace tallowbrook::Answer
