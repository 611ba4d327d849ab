#include "record/microphone_route.h"

#include <glob.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

namespace tallowbrook {

std::optional<MicrophoneInputRoute> microphoneInputRoute(uint32_t raw) {
  if (raw > 3) return std::nullopt;
  return MicrophoneInputRoute(raw);
}

MicrophoneInputRoute resolveMicrophoneInputRoute(uint32_t device,
                                                 const MicrophoneDeviceReader& read,
                                                 const std::set<uint32_t>& visited) {
  if (visited.size() >= 8) return MicrophoneInputRoute::unknown;
  if (visited.count(device)) return MicrophoneInputRoute::unknown;
  const std::optional<MicrophoneDevice> evidence = read(device);
  if (!evidence) return MicrophoneInputRoute::unknown;
  if (!evidence->hasInputStreams) return MicrophoneInputRoute::noInput;
  if (evidence->transportType == 0) return MicrophoneInputRoute::unknown;
  if (evidence->transportType != kTransportAggregate &&
      evidence->transportType != kTransportAutoAggregate) {
    return evidence->transportType == kTransportBuiltIn ? MicrophoneInputRoute::builtIn
                                                        : MicrophoneInputRoute::other;
  }
  if (!evidence->activeSubdevices || evidence->activeSubdevices->empty() ||
      evidence->activeSubdevices->size() > 64) {
    return MicrophoneInputRoute::unknown;
  }
  std::set<uint32_t> inner = visited;
  inner.insert(device);
  size_t kept = 0;
  bool anyUnknown = false;
  bool allBuiltIn = true;
  for (uint32_t member : *evidence->activeSubdevices) {
    const MicrophoneInputRoute route = resolveMicrophoneInputRoute(member, read, inner);
    if (route == MicrophoneInputRoute::noInput) continue;
    ++kept;
    if (route == MicrophoneInputRoute::unknown) anyUnknown = true;
    if (route != MicrophoneInputRoute::builtIn) allBuiltIn = false;
  }
  if (kept == 0 || anyUnknown) return MicrophoneInputRoute::unknown;
  return allBuiltIn ? MicrophoneInputRoute::builtIn : MicrophoneInputRoute::other;
}

std::optional<bool> microphoneBlocked(std::optional<uint32_t> currentDevice,
                                      const MicrophoneDeviceReader& read,
                                      const std::function<std::optional<bool>()>& lidClosed) {
  if (!currentDevice) {
    LidProbeDiagnostic::report("no-audio-unit", 0, 0);
    return std::nullopt;
  }
  LidProbeDiagnostic::report("current-device", 0, *currentDevice);
  const MicrophoneInputRoute route = resolveMicrophoneInputRoute(*currentDevice, read);
  LidProbeDiagnostic::report("input-route", 0, uint32_t(route));
  switch (route) {
    case MicrophoneInputRoute::unknown:
      return std::nullopt;
    case MicrophoneInputRoute::noInput:
    case MicrophoneInputRoute::other:
      return false;
    case MicrophoneInputRoute::builtIn:
      return lidClosed();
  }
  return std::nullopt;
}

std::optional<bool> lidClosedFromAcpi(const std::string& acpiLidDir) {
  glob_t found{};
  const std::string pattern = acpiLidDir + "/*/state";
  std::optional<bool> closed;
  if (glob(pattern.c_str(), 0, nullptr, &found) == 0 && found.gl_pathc > 0) {
    std::ifstream in(found.gl_pathv[0]);
    std::string word, state;
    if (in >> word >> state && word == "state:") {
      if (state == "closed") closed = true;
      if (state == "open") closed = false;
    }
    LidProbeDiagnostic::report("lid", 0, closed ? (*closed ? 1 : 0) : 2);
  }
  globfree(&found);
  return closed;
}

std::string MicrophoneLidWarning::routeMessage(const std::string& message,
                                               std::optional<bool> blocked) {
  if (!blocked) {
    return warned ? message + " " + std::string(kLidClosedText) : message;
  }
  if (*blocked) {
    warned = true;
    return message + " " + std::string(kLidClosedText);
  }
  if (warned) {
    warned = false;
    return message + " " + std::string(kLidClearedText);
  }
  return message;
}

void LidProbeDiagnostic::report(std::string_view stage, int32_t status, uint32_t value) {
  static LidProbeDiagnostic shared(
      [] {
        const char* value = std::getenv("TALLOWBROOK_LID_DIAGNOSTICS");
        return value != nullptr && std::string_view(value) == "1";
      }(),
      STDERR_FILENO);
  shared.write(stage, status, value);
}

void LidProbeDiagnostic::write(std::string_view stage, int32_t status, uint32_t value) {
  if (!enabled_) return;
  std::lock_guard<std::mutex> held(lock_);
  if (count_ > 15) return;
  ++count_;
  const std::string line = "lid-probe stage=" + std::string(stage) +
                           " status=" + std::to_string(status) + " value=" + std::to_string(value) +
                           "\n";
  size_t done = 0;
  while (done < line.size()) {
    const ssize_t n = ::write(fd_, line.data() + done, line.size() - done);
    if (n <= 0) break;
    done += size_t(n);
  }
}

}  // namespace tallowbrook
