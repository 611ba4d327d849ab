#include "cli/standard_input.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>

namespace tallowbrook {

std::string readStandardInput() {
  std::string input;
  std::size_t size = 0;
  for (;;) {
    if (input.size() - size < 65536) input.resize(std::max<std::size_t>(2 * input.size(), 65536));
    const ssize_t got = ::read(STDIN_FILENO, input.data() + size, input.size() - size);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    size += static_cast<std::size_t>(got);
  }
  input.resize(size);
  return input;
}

}  // namespace tallowbrook
