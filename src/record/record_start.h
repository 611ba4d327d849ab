// `record start`: a recording driven by control lines, signals and the end of input.
#pragma once

#include <memory>

#include "record/record_options.h"
#include "record/record_platform.h"
#include "record/record_session.h"

namespace tallowbrook::Record {

// Applies one control line to `session` (parseControlLine): "pause", "resume"; an empty line is
// ignored; anything else prints the "unknown control command: " warning. Returns false for "stop"
// (the caller stops the session), true otherwise. Any thread.
bool applyControlLine(RecordSession& session, const std::string& line);

// Creates and starts the session on `platform` (failing with its RecordError message, or
// "could not start recording: " + reason), stops it on SIGINT, SIGTERM or SIGHUP, on a "stop"
// line or at the end of standard input, and exits with status 0 once it completed. Never
// returns. Main thread only.
[[noreturn]] void start(const StartOptions& options, RecordPlatform& platform);

}  // namespace tallowbrook::Record
