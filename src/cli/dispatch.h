// Choosing the subcommand from the command line: the one place that names every job.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tallowbrook {

// One subcommand: its word and what runs it, given the words after it.
struct Subcommand {
  std::string_view word;
  void (*run)(const std::vector<std::string>& rest);
};

// Every subcommand, in the order the words are matched and listed in the usage line. Pure.
std::span<const Subcommand> subcommands();

// "usage: tallowbrook-helper <capabilities|vision-ocr|...|text-pdf>", made from the table.
std::string topLevelUsage();

// Runs the subcommand that `words` (the command line without the program path) names, and
// returns exit status 0 when it returns. Usage errors and unknown words end in `fail` (status
// 1). Matching is exact and case-sensitive. Main thread only.
int dispatch(const std::vector<std::string>& words);

}  // namespace tallowbrook
