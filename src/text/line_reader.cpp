#include "text/line_reader.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace tallowbrook::Text {
namespace {

constexpr size_t kChunk = 64 * 1024;
// After a line longer than this the buffer is given back, so one huge line does not keep its
// memory for the rest of the run.
constexpr size_t kKeptCapacity = 1024 * 1024;

}  // namespace

bool LineReader::next(std::string_view* line) {
  // Drop what the previous call returned.
  if (start_ > 0) {
    buffer_.erase(0, start_);
    start_ = 0;
    if (buffer_.capacity() > kKeptCapacity && buffer_.size() < kKeptCapacity / 2) {
      buffer_.shrink_to_fit();
    }
  }
  for (;;) {
    size_t feed = buffer_.find('\n', scanned_);
    if (feed != std::string::npos) {
      size_t end = feed;
      if (end > 0 && buffer_[end - 1] == '\r') --end;
      *line = std::string_view(buffer_).substr(0, end);
      start_ = feed + 1;
      scanned_ = 0;
      return true;
    }
    scanned_ = buffer_.size();
    if (ended_) {
      if (buffer_.empty()) return false;
      *line = buffer_;
      start_ = buffer_.size();
      scanned_ = 0;
      return true;
    }
    size_t had = buffer_.size();
    buffer_.resize(had + kChunk);
    ssize_t n;
    for (;;) {
      n = ::read(fd_, buffer_.data() + had, kChunk);
      if (n >= 0) break;
      if (errno == EINTR) continue;
      // A non-blocking descriptor from the parent: wait for data instead of ending.
      if (errno != EAGAIN && errno != EWOULDBLOCK) break;
      pollfd ready{fd_, POLLIN, 0};
      ::poll(&ready, 1, -1);
    }
    buffer_.resize(had + (n > 0 ? static_cast<size_t>(n) : 0));
    if (n <= 0) ended_ = true;
  }
}

std::string_view trimBlanksAndTabs(std::string_view line) {
  auto first = line.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  auto last = line.find_last_not_of(" \t");
  return line.substr(first, last - first + 1);
}

}  // namespace tallowbrook::Text
