#include "base/standard_input.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>

namespace tallowbrook {

std::optional<std::string> readStandardInput(std::size_t limit) {
  std::string input;
  std::size_t size = 0;
  for (;;) {
    if (input.size() - size < 65536) input.resize(std::max<std::size_t>(2 * input.size(), 65536));
    // Never more than one byte past the limit: that byte says the input is too long.
    const std::size_t room = std::min(input.size() - size, limit + 1 - std::min(size, limit));
    const ssize_t got = ::read(STDIN_FILENO, input.data() + size, room);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    size += static_cast<std::size_t>(got);
    if (size > limit) return std::nullopt;
  }
  input.resize(size);
  return input;
}

}  // namespace tallowbrook
