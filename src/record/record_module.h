// The entry points of the record module (libpulse and libsoxr), looked up by the record
// command once the command line has been checked, so usage errors never load the module.
#pragma once

#include "record/record_options.h"

namespace tallowbrook::Record {

// Prints the "record-permissions" line; with `request`, the request-microphone form (which
// never prompts on this platform: "prompted" is false). Main thread only.
using PermissionsEntry = void (*)(bool request);
inline constexpr const char* kPermissionsSymbol = "tallowbrook_record_permissions";

// Prints the "record-devices" line, or fails when no sound server can be reached.
using DevicesEntry = void (*)();
inline constexpr const char* kDevicesSymbol = "tallowbrook_record_devices";

// Runs a recording until its session completes, then exits with status 0; fails when the
// session cannot be created or started. Never returns. Main thread only.
using StartEntry = void (*)(const StartOptions* options);
inline constexpr const char* kStartSymbol = "tallowbrook_record_start";

}  // namespace tallowbrook::Record
