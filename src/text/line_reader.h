// Reading standard input one line at a time, however long the line.
#pragma once

#include <string>
#include <string_view>

namespace tallowbrook::Text {

// Reads lines from a file descriptor. Lines end at "\n"; a "\r" right before it belongs to the
// ending too. The last line needs no ending. Memory holds the longest line seen plus one read
// chunk, and goes back down after a long line. Not thread-safe: one reader thread.
class LineReader {
 public:
  explicit LineReader(int fd) : fd_(fd) {}

  // The next line without its ending, valid until the next call; false at end of input (or on
  // a read error, which ends input the same way).
  bool next(std::string_view* line);

 private:
  int fd_;
  bool ended_ = false;
  std::string buffer_;
  size_t start_ = 0;    // first byte of buffer_ not yet returned
  size_t scanned_ = 0;  // bytes from start_ already known to hold no line feed
};

// `line` without blanks and tabs at either end. Pure.
std::string_view trimBlanksAndTabs(std::string_view line);

}  // namespace tallowbrook::Text
