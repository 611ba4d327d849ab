#include "record/control_line.h"

#include <unistd.h>

#include <cerrno>

namespace tallowbrook::Record {
namespace {

// The length of the horizontal white space character (tab, or a Unicode space separator in
// UTF-8) at the start of `text`, or 0. Line breaks are not white space here.
size_t spaceAt(std::string_view text) {
  static constexpr std::string_view kSpaces[] = {
      " ",      "\t",     "\u00a0", "\u1680", "\u2000", "\u2001", "\u2002", "\u2003", "\u2004",
      "\u2005", "\u2006", "\u2007", "\u2008", "\u2009", "\u200a", "\u202f", "\u205f", "\u3000"};
  for (std::string_view space : kSpaces) {
    if (text.substr(0, space.size()) == space) return space.size();
  }
  return 0;
}

size_t spaceBefore(std::string_view text) {
  for (size_t length = 1; length <= 3 && length <= text.size(); ++length) {
    if (spaceAt(text.substr(text.size() - length)) == length) return length;
  }
  return 0;
}

}  // namespace

ControlLine parseControlLine(std::string_view line) {
  while (size_t length = spaceAt(line)) line.remove_prefix(length);
  while (size_t length = spaceBefore(line)) line.remove_suffix(length);
  ControlLine parsed{ControlCommand::unknown, std::string(line)};
  if (line.empty()) parsed.command = ControlCommand::none;
  if (line == "pause") parsed.command = ControlCommand::pause;
  if (line == "resume") parsed.command = ControlCommand::resume;
  if (line == "stop") parsed.command = ControlCommand::stop;
  return parsed;
}

bool ControlLineReader::fill() {
  for (;;) {
    ssize_t n = ::read(fd_, buffer_, sizeof buffer_);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    start_ = 0;
    end_ = size_t(n);
    return true;
  }
}

bool ControlLineReader::next(std::string* line) {
  line->clear();
  bool any = false;  // whether a line has begun (bytes, or at least its "\n")
  for (;;) {
    if (start_ == end_ && !fill()) return any;
    any = true;
    std::string_view rest(buffer_ + start_, end_ - start_);
    size_t newline = rest.find('\n');
    std::string_view piece = rest.substr(0, newline);
    if (line->size() < kMaxControlLine) {
      line->append(piece.substr(0, kMaxControlLine - line->size()));
    }
    if (newline != std::string_view::npos) {
      start_ += newline + 1;
      return true;
    }
    start_ = end_;
  }
}

}  // namespace tallowbrook::Record
