// The record module's entry points (see record_module.h).
#include "record/record_module.h"

#include "base/fail.h"
#include "base/out.h"
#include "record/pulse/pulse_capture.h"
#include "record/record_start.h"

using namespace tallowbrook;

extern "C" __attribute__((visibility("default"))) void tallowbrook_record_permissions(
    bool request) {
  static Pulse::PulsePlatform platform;  // process lifetime, like a recording's
  bool screenRecording = false;
  const MicrophoneAuthorization status = platform.microphoneAuthorization();
  if (status != MicrophoneAuthorization::noSoundServer &&
      status != MicrophoneAuthorization::denied) {
    try {
      screenRecording = platform.makeSystemCapture()->preflight();
    } catch (...) {
      screenRecording = false;
    }
  }
  Json line{{"type", "record-permissions"},
            {"microphone", microphoneAuthorizationText(status)},
            {"screenRecording", screenRecording}};
  if (request) line["prompted"] = false;
  writeJsonLine(line);
}

extern "C" __attribute__((visibility("default"))) void tallowbrook_record_devices() {
  Json devices = Json::array();
  try {
    Pulse::Connection connection("Tallowbrook");
    const Pulse::InputCatalogue catalogue = Pulse::inputCatalogue(connection);
    for (const Pulse::SourceInfo& source : catalogue.inputs) {
      devices.push_back(Json{{"uid", source.name},
                             {"name", source.description},
                             {"default", catalogue.defaultInput == source.name}});
    }
  } catch (const Pulse::ConnectError& error) {
    if (error.accessDenied) {
      fail(
          "The sound server refused this program, so no input device can be listed. Allow it "
          "to record in the sound server's settings, then try again.");
    }
    fail(
        "No sound server is running, so no input device can be listed. Start PulseAudio or "
        "PipeWire (with pipewire-pulse), then try again.");
  }
  writeJsonLine(Json{{"type", "record-devices"}, {"devices", devices}});
}

extern "C" __attribute__((visibility("default"))) void tallowbrook_record_start(
    const Record::StartOptions* options) {
  static Pulse::PulsePlatform platform;
  Record::start(*options, platform);
}
