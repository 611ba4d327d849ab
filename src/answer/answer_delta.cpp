#include "answer/answer_delta.h"

namespace tallowbrook::Answer {

std::optional<std::string> DeltaCutter::next(std::string_view content) {
  size_t count = characters_.count(content);
  if (count <= previousCount_) return std::nullopt;
  std::string delta(content.substr(characters_.prefixBytes(content, previousCount_)));
  previous_.assign(content);
  previousCount_ = count;
  return delta;
}

}  // namespace tallowbrook::Answer
