// The process-wide command-line words.
#pragma once

#include <string>
#include <vector>

namespace tallowbrook {

// The command line without the program path: element 0 is the subcommand word.
// Set once by the entry point before any subcommand runs; read-only afterwards, so any
// thread may read it without a lock.
const std::vector<std::string>& args();

// The whole command line, program path first, as the process received it. Same rules as `args()`.
const std::vector<std::string>& commandLine();

// Records argv as `commandLine()` and argv[1..argc) as `args()`. Called once, by the entry point,
// before any other thread exists. Words are kept byte for byte (Linux paths need not be UTF-8).
void setArgs(int argc, const char* const* argv);

}  // namespace tallowbrook
