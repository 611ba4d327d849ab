#include "record/record_command.h"

#include "cli/fail.h"

namespace tallowbrook::Record {

void run(const std::vector<std::string>& args) {
  if (args.empty()) fail("usage: record <permissions|request-microphone|devices|start>");
  const std::string& word = args.front();
  if (word == "permissions" || word == "request-microphone" || word == "devices" ||
      word == "start") {
    fail("record " + word + " is not built yet");
  }
  fail("unknown record subcommand: " + word);
}

}  // namespace tallowbrook::Record
