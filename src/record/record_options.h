// The options of `record start`.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "record/record_input.h"

namespace tallowbrook::Record {

struct StartOptions {
  std::string out;  // the WAV file to write (may be empty: fails at creation)
  RecordInput input = RecordInput::mic;
  std::optional<std::string> device;  // microphone UID; none: the default input
};

// Reads "--out PATH", "--input mic|system|both" and "--device UID" (later occurrences replace
// earlier ones). Calls `fail` with "unknown option: X", "--input must be one of mic, system,
// both", or the start usage line when no "--out" value was taken. A trailing "--out" forgets
// the path, a trailing "--device" forgets the device, a trailing "--input" fails. Any thread.
StartOptions parseStartOptions(const std::vector<std::string>& args);

}  // namespace tallowbrook::Record
