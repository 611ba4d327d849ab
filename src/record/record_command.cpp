#include "record/record_command.h"

#include "base/fail.h"
#include "base/module.h"
#include "record/record_module.h"
#include "record/record_options.h"

namespace tallowbrook::Record {
namespace {

void* recordModule() {
  static void* module = loadModule("record");
  return module;
}

}  // namespace

void run(const std::vector<std::string>& args) {
  if (args.empty()) fail("usage: record <permissions|request-microphone|devices|start>");
  const std::string& word = args.front();
  if (word == "permissions" || word == "request-microphone") {
    auto entry = reinterpret_cast<PermissionsEntry>(
        moduleSymbol(recordModule(), "record", kPermissionsSymbol));
    entry(word == "request-microphone");
    return;
  }
  if (word == "devices") {
    auto entry =
        reinterpret_cast<DevicesEntry>(moduleSymbol(recordModule(), "record", kDevicesSymbol));
    entry();
    return;
  }
  if (word == "start") {
    const StartOptions options =
        parseStartOptions(std::vector<std::string>(args.begin() + 1, args.end()));
    auto entry = reinterpret_cast<StartEntry>(moduleSymbol(recordModule(), "record", kStartSymbol));
    entry(&options);
    return;
  }
  fail("unknown record subcommand: " + word);
}

}  // namespace tallowbrook::Record
