#include "record/record_options.h"

#include "base/fail.h"

namespace tallowbrook::Record {

StartOptions parseStartOptions(const std::vector<std::string>& args) {
  StartOptions options;
  std::optional<std::string> out;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& word = args[i];
    const bool hasValue = i + 1 < args.size();
    if (word == "--out") {
      if (hasValue) {
        out = args[++i];
      } else {
        out.reset();
      }
    } else if (word == "--input") {
      const std::optional<RecordInput> input =
          hasValue ? parseRecordInput(args[++i]) : std::nullopt;
      if (!input) fail("--input must be one of mic, system, both");
      options.input = *input;
    } else if (word == "--device") {
      if (hasValue) {
        options.device = args[++i];
      } else {
        options.device.reset();
      }
    } else {
      fail("unknown option: " + word);
    }
  }
  if (!out) fail("usage: record start --out <path.wav> [--input mic|system|both] [--device <uid>]");
  options.out = *out;
  return options;
}

}  // namespace tallowbrook::Record
