// Closed-lid microphone detection: which physical input a capture records from, whether a
// closed lid cuts it off, the warning state that turns the answers into messages, and the
// opt-in probe trace on standard error.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tallowbrook {

// Transport types (four-character codes). An input source's transport is built-in when the
// server calls it an internal device, a remap or loopback source is an aggregate of its
// master.
inline constexpr uint32_t fourCharCode(const char (&code)[5]) {
  return uint32_t(uint8_t(code[0])) << 24 | uint32_t(uint8_t(code[1])) << 16 |
         uint32_t(uint8_t(code[2])) << 8 | uint32_t(uint8_t(code[3]));
}
inline constexpr uint32_t kTransportBuiltIn = fourCharCode("bltn");
inline constexpr uint32_t kTransportAggregate = fourCharCode("grup");
inline constexpr uint32_t kTransportAutoAggregate = fourCharCode("fgrp");

enum class MicrophoneInputRoute : uint32_t { unknown = 0, noInput = 1, builtIn = 2, other = 3 };

// The route with raw value `raw`, or nothing for 4 and above. Pure.
std::optional<MicrophoneInputRoute> microphoneInputRoute(uint32_t raw);

// What is known about one device.
struct MicrophoneDevice {
  uint32_t transportType = 0;
  bool hasInputStreams = false;
  std::optional<std::vector<uint32_t>> activeSubdevices;  // aggregates only
};

using MicrophoneDeviceReader = std::function<std::optional<MicrophoneDevice>(uint32_t id)>;

// The route of `device`: depth limit of 8 visited, cycles, missing evidence, no input streams,
// transport 0, built-in or other, and aggregates through their members (members resolving to
// noInput dropped; none left or any unknown: unknown; all built-in: builtIn; else other).
// Pure apart from calling `read`.
MicrophoneInputRoute resolveMicrophoneInputRoute(uint32_t device,
                                                 const MicrophoneDeviceReader& read,
                                                 const std::set<uint32_t>& visited = {});

// Whether a closed lid blocks the microphone that `currentDevice` names: no device → nothing
// (stage "no-audio-unit"); route unknown → nothing; noInput or other → false; builtIn → what
// `lidClosed` says. Reports the "current-device", "input-route" stages. Any thread.
std::optional<bool> microphoneBlocked(std::optional<uint32_t> currentDevice,
                                      const MicrophoneDeviceReader& read,
                                      const std::function<std::optional<bool>()>& lidClosed);

// The lid state from the first /proc/acpi/button/lid/*/state under `acpiLidDir` ("state:
// closed" → true, "state: open" → false); nothing when no such file is readable or it says
// something else. Reports the "lid" stage. Any thread.
std::optional<bool> lidClosedFromAcpi(const std::string& acpiLidDir = "/proc/acpi/button/lid");

inline constexpr std::string_view kLidClosedText =
    "The MacBook lid is closed, which disconnects its built-in microphone. Open the lid or stop "
    "and choose an external microphone. System audio can still be recorded.";
inline constexpr std::string_view kLidClearedText =
    "The closed-lid microphone warning no longer applies. Check the input meter to confirm "
    "microphone audio.";

// Whether the user has been told that a closed lid blocks the microphone. Owned by the
// microphone source and used only on its reconfigure queue.
struct MicrophoneLidWarning {
  bool warned = false;

  // `message`, with the closed-lid text appended while the lid blocks the microphone (an
  // unknown answer keeps the last known state) and the cleared text once, when it turns.
  std::string routeMessage(const std::string& message, std::optional<bool> blocked);
};

// The probe trace: when TALLOWBROOK_LID_DIAGNOSTICS is exactly "1" at first use, each report
// writes "lid-probe stage=S status=N value=V" to standard error, at most 16 lines per process.
// Any thread; `lock` serialises the count and the writes.
class LidProbeDiagnostic {
 public:
  static void report(std::string_view stage, int32_t status, uint32_t value);

  // A trace for tests: `enabled` as given, lines written to `fd`.
  LidProbeDiagnostic(bool enabled, int fd) : enabled_(enabled), fd_(fd) {}
  void write(std::string_view stage, int32_t status, uint32_t value);

 private:
  std::mutex lock_;
  int count_ = 0;  // guarded by lock_
  const bool enabled_;
  const int fd_;
};

}  // namespace tallowbrook
