#include "record/record_command.h"

#include <memory>

#include "base/error.h"
#include "base/fail.h"
#include "base/module.h"
#include "base/out.h"
#include "record/record_options.h"
#include "record/record_platform.h"
#include "record/record_session.h"
#include "record/record_start.h"

namespace tallowbrook::Record {
namespace {

// The sound server's platform from the record module, loaded once the command line has been
// checked, so usage errors never load libpulse. It lives as long as the process, as a
// recording's sources do.
RecordPlatform& platform() {
  static RecordPlatform* made =
      moduleEntry<CreateRecordPlatform>("record", kCreateRecordPlatformSymbol)();
  return *made;
}

void permissions(bool request) {
  RecordPlatform& recording = platform();
  bool screenRecording = false;
  const MicrophoneAuthorization status = recording.microphoneAuthorization();
  if (status != MicrophoneAuthorization::noSoundServer &&
      status != MicrophoneAuthorization::denied) {
    try {
      screenRecording =
          recording.makeSystemCapture(deliveryPeriod(RecordInput::system))->preflight();
    } catch (const std::exception&) {  // no sound server answered the second question
      screenRecording = false;
    }
  }
  Json line{{"type", "record-permissions"},
            {"microphone", microphoneAuthorizationText(status)},
            {"screenRecording", screenRecording}};
  if (request) line["prompted"] = false;
  writeJsonLine(line);
}

void devices() {
  Json list = Json::array();
  try {
    for (const InputDevice& device : platform().inputDevices()) {
      list.push_back(
          Json{{"uid", device.uid}, {"name", device.name}, {"default", device.isDefault}});
    }
  } catch (const Error& error) {
    fail(error.message());
  }
  writeJsonLine(Json{{"type", "record-devices"}, {"devices", list}});
}

}  // namespace

void run(const std::vector<std::string>& args) {
  if (args.empty()) fail("usage: record <permissions|request-microphone|devices|start>");
  const std::string& word = args.front();
  if (word == "permissions" || word == "request-microphone") {
    permissions(word == "request-microphone");
    return;
  }
  if (word == "devices") {
    devices();
    return;
  }
  if (word == "start") {
    const StartOptions options =
        parseStartOptions(std::vector<std::string>(args.begin() + 1, args.end()));
    start(options, platform());
  }
  fail("unknown record subcommand: " + word);
}

}  // namespace tallowbrook::Record
