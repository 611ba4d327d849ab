#include "speech/speak_options.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>

namespace tallowbrook::Speak {

std::optional<float> parseFloat32(std::string_view word) {
  if (word.empty() || std::isspace(static_cast<unsigned char>(word.front()))) return std::nullopt;
  std::string text(word);
  if (text.find('\0') != std::string::npos) return std::nullopt;
  char* end = nullptr;
  errno = 0;
  float value = std::strtof(text.c_str(), &end);
  if (end != text.c_str() + text.size()) return std::nullopt;
  return value;  // out-of-range values come back as +-inf or 0, as a float literal would
}

Options scanOptions(const std::vector<std::string>& words, OptionSet known) {
  bool renderOnly = known == OptionSet::render;
  Options options;
  for (size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    bool takesValue = word == "--voice" || word == "--rate" ||
                      (renderOnly && (word == "--out" || word == "--pitch"));
    if (!takesValue) continue;
    ++i;
    std::optional<std::string> value;
    if (i < words.size()) value = words[i];
    if (word == "--out") {
      options.out = value;
    } else if (word == "--voice") {
      options.voice = value;
    } else if (value) {
      if (auto number = parseFloat32(*value))
        (word == "--rate" ? options.rate : options.pitch) = *number;
    }
  }
  return options;
}

}  // namespace tallowbrook::Speak
