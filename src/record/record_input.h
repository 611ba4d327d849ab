// RecordInput: what a recording takes in.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tallowbrook {

// The microphone, the system's audio, or both mixed. Spelled "mic", "system", "both".
enum class RecordInput { mic, system, both };

// The text of `input`. Pure.
inline const char* recordInputText(RecordInput input) {
  switch (input) {
    case RecordInput::mic:
      return "mic";
    case RecordInput::system:
      return "system";
    case RecordInput::both:
      return "both";
  }
  return "mic";
}

// The input spelled exactly `text` (case-sensitive), or nothing. Pure.
inline std::optional<RecordInput> parseRecordInput(std::string_view text) {
  if (text == "mic") return RecordInput::mic;
  if (text == "system") return RecordInput::system;
  if (text == "both") return RecordInput::both;
  return std::nullopt;
}

}  // namespace tallowbrook
