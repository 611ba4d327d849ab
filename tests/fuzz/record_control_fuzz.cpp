// Fuzzes the control lines of `record start`: the input is fed through the bounded line reader
// (over a pipe, in pieces) and every line is parsed. Each line is at most kMaxControlLine bytes
// and holds no line feed; a command is recognised exactly when the line, trimmed, is its word;
// an unknown command's text starts and ends with no space or tab.
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <thread>

#include "fuzz_check.h"
#include "record/control_line.h"

namespace {

using tallowbrook::Record::ControlCommand;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view input(reinterpret_cast<const char*>(data), size);
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) return 0;
  std::thread writer([&] {
    size_t at = 0;
    while (at < input.size()) {
      ssize_t n = write(fds[1], input.data() + at, std::min<size_t>(input.size() - at, 997));
      if (n <= 0) break;
      at += size_t(n);
    }
    close(fds[1]);
  });
  tallowbrook::Record::ControlLineReader reader(fds[0]);
  size_t lines = 0;
  for (std::string line; reader.next(&line);) {
    ++lines;
    fuzz::check(line.size() <= tallowbrook::Record::kMaxControlLine);
    fuzz::check(line.find('\n') == std::string::npos);
    auto parsed = tallowbrook::Record::parseControlLine(line);
    switch (parsed.command) {
      case ControlCommand::pause:
        fuzz::check(parsed.text == "pause");
        break;
      case ControlCommand::resume:
        fuzz::check(parsed.text == "resume");
        break;
      case ControlCommand::stop:
        fuzz::check(parsed.text == "stop");
        break;
      case ControlCommand::none:
        fuzz::check(parsed.text.empty());
        break;
      case ControlCommand::unknown:
        fuzz::check(!parsed.text.empty() && parsed.text != "pause" && parsed.text != "resume" &&
                    parsed.text != "stop");
        fuzz::check(parsed.text.front() != ' ' && parsed.text.front() != '\t');
        fuzz::check(parsed.text.back() != ' ' && parsed.text.back() != '\t');
        fuzz::check(line.find(parsed.text) != std::string::npos);
        break;
    }
  }
  writer.join();
  close(fds[0]);
  // Every line feed ends a line; text after the last one is one more.
  size_t feeds = 0;
  for (char c : input) feeds += c == '\n';
  fuzz::check(lines == feeds + (input.empty() || input.back() == '\n' ? 0 : 1));
  return 0;
}
