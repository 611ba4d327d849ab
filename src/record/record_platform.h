// RecordPlatform: what recording needs from the machine, behind an interface so the session
// is tested with fakes. The sound server's implementation lives in the record module, whose one
// entry makes it.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "audio/platform_converter.h"
#include "record/clock.h"
#include "record/input_engine.h"
#include "record/system_capture.h"

namespace tallowbrook {

// Whether this process may record the microphone. The first four carry the values of the
// platform's authorisation states; `noSoundServer` is this platform's own: nothing to ask.
enum class MicrophoneAuthorization {
  notDetermined = 0,
  restricted = 1,
  denied = 2,
  authorized = 3,
  noSoundServer = 4
};

// The text of an authorisation in "record-permissions" lines: "not-determined", "restricted",
// "denied", "authorized"; no sound server reads "denied" (nothing accepts a recording client).
const char* microphoneAuthorizationText(MicrophoneAuthorization status);

// The failure of a recording that finds no sound server.
inline constexpr const char* kNoSoundServerText =
    "No sound server is running, so nothing can be recorded. Start PulseAudio or PipeWire "
    "(with pipewire-pulse), then try again.";

// A microphone as "record devices" lists it.
struct InputDevice {
  std::string uid;   // the identifier `record start --device` takes
  std::string name;  // the name shown to the user
  bool isDefault = false;
};

// How much audio a capture stream hands over at a time: the sound server wakes this process
// once per period and stream. Short periods let the file and the level lines follow the audio
// closely; long ones cost fewer wakeups.
using DeliveryPeriod = std::chrono::milliseconds;

class RecordPlatform {
 public:
  virtual ~RecordPlatform() = default;
  // The machine's microphones. Throws Error with a sentence telling the user what to do when
  // they cannot be listed (no sound server, or the server refused this program). Main thread.
  virtual std::vector<InputDevice> inputDevices() = 0;
  // Makes the converter behind each source's ToTarget. Any thread.
  virtual ConverterFactory converterFactory() = 0;
  // Asks afresh. Any thread.
  virtual MicrophoneAuthorization microphoneAuthorization() = 0;
  // A new capture engine for one microphone source, delivering every `period`.
  virtual std::unique_ptr<InputEngine> makeInputEngine(DeliveryPeriod period) = 0;
  // A new capture service for one system-audio source, delivering every `period`.
  virtual std::unique_ptr<SystemCapture> makeSystemCapture(DeliveryPeriod period) = 0;
  // The clock of the session's mixing and the sources' watchdogs.
  virtual const Clock& clock() { return steadyClock(); }
};

// The record module's entry: the sound server's platform, owned by the caller.
using CreateRecordPlatform = RecordPlatform* (*)();
inline constexpr const char* kCreateRecordPlatformSymbol = "tallowbrook_create_record_platform";

}  // namespace tallowbrook
