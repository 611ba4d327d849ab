// Choosing the subcommand from the command line.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace tallowbrook {

// The subcommand words, in the order they are matched.
inline constexpr std::array<std::string_view, 10> kSubcommandWords = {
    "capabilities", "vision-ocr", "pdf-page", "pdf-text",   "answer",
    "record",       "speak",      "rtf-text", "mcp-bridge", "text-pdf"};

// "usage: tallowbrook-helper <capabilities|vision-ocr|...|text-pdf>", made from the words above.
std::string topLevelUsage();

// Runs the subcommand that `words` (the command line without the program path) names, and
// returns exit status 0 when it returns. Usage errors and unknown words end in `fail` (status
// 1). Matching is exact and case-sensitive. Main thread only.
int dispatch(const std::vector<std::string>& words);

}  // namespace tallowbrook
