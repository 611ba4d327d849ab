#include "answer/stable_text.h"

#include "text/utf8_text.h"

namespace tallowbrook::Answer {

std::optional<std::string> StableText::append(std::string_view piece) {
  bytes_.append(piece);
  std::string text =
      repairUtf8(std::string_view(bytes_).substr(0, bytes_.size() - incompleteUtf8Tail(bytes_)));
  size_t count = characters_.count(text);
  if (count < 2) return std::nullopt;
  text.resize(characters_.prefixBytes(text, count - 1));
  if (text.size() <= settledBytes_) return std::nullopt;
  settledBytes_ = text.size();
  return text;
}

std::optional<std::string> StableText::finish() {
  std::string text =
      repairUtf8(std::string_view(bytes_).substr(0, bytes_.size() - incompleteUtf8Tail(bytes_)));
  if (text.size() <= settledBytes_) return std::nullopt;
  settledBytes_ = text.size();
  return text;
}

}  // namespace tallowbrook::Answer
