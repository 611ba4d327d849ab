#include "documents/rich_text.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "cli/fail.h"
#include "cli/out.h"
#include "documents/rtf_lines.h"
#include "documents/rtf_reader.h"

namespace tallowbrook::RichText {
namespace {

class DiskFiles : public FileReader {
 public:
  std::optional<std::string> read(const std::string& path) const override {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    std::string bytes;
    char buffer[65536];
    for (;;) {
      const ssize_t n = ::read(fd, buffer, sizeof buffer);
      if (n > 0) {
        bytes.append(buffer, size_t(n));
      } else if (n == 0) {
        break;
      } else if (errno != EINTR) {
        ::close(fd);
        return std::nullopt;  // a directory, or a failing device
      }
    }
    ::close(fd);
    return bytes;
  }
};

}  // namespace

const FileReader& diskFiles() {
  static const DiskFiles files;
  return files;
}

Outcome convert(std::string_view bytes) {
  Outcome outcome;
  if (!rtf::looksLikeRtf(bytes)) {
    outcome.failure = "that file is not RTF this Mac can read";
    return outcome;
  }
  outcome.lines = rtf::splitLines(rtf::readText(bytes));
  return outcome;
}

Outcome prepare(const std::vector<std::string>& args, const FileReader& files) {
  if (args.empty()) return {"usage: rtf-text <path>", {}};
  std::optional<std::string> bytes = files.read(args.front());
  if (!bytes) return {"could not read " + args.front(), {}};
  return convert(*bytes);
}

void run(const std::vector<std::string>& args, const FileReader& files) {
  const Outcome outcome = prepare(args, files);
  if (outcome.failure) fail(*outcome.failure);
  for (const std::string& line : outcome.lines) {
    writeJsonLine(Json{{"type", "line"}, {"text", line}});
  }
  writeJsonLine(Json{{"type", "done"}});
}

void run(const std::vector<std::string>& args) {
  run(args, diskFiles());
}

}  // namespace tallowbrook::RichText
