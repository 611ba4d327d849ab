// Reading a job's request from standard input.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace tallowbrook {

// All of standard input up to its end, read in large blocks straight into the result, or
// nothing once more than `limit` bytes have arrived (nothing more is read then: a writer that
// never stops cannot make the helper hold more). A read interrupted by a signal is retried; any
// other read error ends the input there, so the caller sees what arrived before it (and decodes
// it, or reports it as not a request). Call from the main thread before any other reader of
// standard input exists.
std::optional<std::string> readStandardInput(std::size_t limit);

}  // namespace tallowbrook
