// The `record` subcommand.
#pragma once

#include <string>
#include <vector>

namespace tallowbrook::Record {

// Runs the record subcommand named by the first of `args` (the words after "record").
// Fails with the usage line when there is none. Main thread only.
void run(const std::vector<std::string>& args);

}  // namespace tallowbrook::Record
