// The request `answer` reads on standard input.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tallowbrook::Answer {

// The answer's token limit when the request names none.
inline constexpr int64_t kDefaultMaxTokens = 900;

struct Request {
  std::string system;  // the instructions given to the model
  std::string user;    // the prompt to answer
  int64_t maxTokens = kDefaultMaxTokens;
};

// Decodes `input` as a JSON object with string "system" and "user" and an optional integer
// "maxTokens" (absent or null: 900). Other keys are ignored. Returns nothing for anything else:
// not JSON, not an object, a missing or wrongly typed member, a fractional or out-of-range
// maxTokens. Pure; any thread.
std::optional<Request> decodeRequest(std::string_view input);

}  // namespace tallowbrook::Answer
