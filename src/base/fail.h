// Ending a run that cannot go on.
#pragma once

#include <string_view>

#include "base/out.h"

namespace tallowbrook {

// The failure document for `message`: {"type":"error","message":message}.
Json failureDocument(std::string_view message);

// Prints the failure document on standard output (one line, flushed) and ends the process with
// exit status 1; never returns. If the document cannot be serialised nothing is printed and the
// status is still 1. Takes `Out::lock()`: must not be called while holding it. Other threads
// are not joined and no static destructors run (files a job writes are kept valid by their own
// explicit `finish`, never by exit-time cleanup).
[[noreturn]] void fail(std::string_view message);

}  // namespace tallowbrook
