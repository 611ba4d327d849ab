// The control lines of `record start` on standard input: what a line asks for, and reading lines
// whose length a writer cannot make unbounded.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tallowbrook::Record {

enum class ControlCommand { none, pause, resume, stop, unknown };

struct ControlLine {
  ControlCommand command = ControlCommand::none;
  std::string text;  // the line without the spaces around it (named in the unknown warning)
};

// What `line` asks for once spaces, tabs and the Unicode space separators (in UTF-8) around it
// are trimmed (line breaks are not trimmed): "pause", "resume", "stop", nothing for an empty
// line, unknown for anything else. Pure; any thread.
ControlLine parseControlLine(std::string_view line);

// No control line is longer; the rest of a longer one is skipped.
inline constexpr size_t kMaxControlLine = 4096;

// Reads lines from a file descriptor (standard input), each without its "\n". A line longer than
// kMaxControlLine is cut to its first kMaxControlLine bytes and the rest of it is read and
// dropped, so memory stays bounded whatever comes. The last line may lack its "\n". One thread.
class ControlLineReader {
 public:
  explicit ControlLineReader(int fd) : fd_(fd) {}

  // The next line; false at the end of input or on a read error.
  bool next(std::string* line);

 private:
  // Refills the buffer; false at the end of input or on a read error.
  bool fill();

  int fd_;
  char buffer_[4096];
  size_t start_ = 0, end_ = 0;
};

}  // namespace tallowbrook::Record
