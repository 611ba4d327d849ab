#include "documents/rich_text.h"
#include "base/error.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "base/fail.h"
#include "base/out.h"
#include "documents/rtf_lines.h"
#include "documents/rtf_reader.h"

namespace tallowbrook::RichText {
namespace {

class DiskFiles : public FileReader {
 public:
  explicit DiskFiles(size_t limit) : limit_(limit) {}

  std::optional<std::string> read(const std::string& path) const override {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    std::optional<std::string> bytes = readOpen(fd);
    ::close(fd);
    return bytes;
  }

 private:
  std::optional<std::string> readOpen(int fd) const {
    std::string bytes;
    bool openingChecked = false;
    char buffer[65536];
    for (;;) {
      // Never more than one byte past the limit: that byte says the file is too large.
      const size_t room = std::min(sizeof buffer, limit_ + 1 - std::min(bytes.size(), limit_));
      const ssize_t n = ::read(fd, buffer, room);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) return std::nullopt;  // a directory, or a failing device
      bytes.append(buffer, size_t(n));
      if (bytes.size() > limit_) return std::nullopt;
      if (!openingChecked && (n == 0 || bytes.size() >= kRtfOpeningBytes)) {
        openingChecked = true;
        // Not RTF: the opening is all the caller needs to refuse it.
        if (!rtf::looksLikeRtf(std::string_view(bytes).substr(0, kRtfOpeningBytes))) return bytes;
      }
      if (n == 0) return bytes;
    }
  }

  size_t limit_;
};

}  // namespace

std::unique_ptr<FileReader> makeDiskFiles(size_t limit) {
  return std::make_unique<DiskFiles>(limit);
}

const FileReader& diskFiles() {
  static const DiskFiles files(kMaxRtfBytes);
  return files;
}

std::vector<std::string> convert(std::string_view bytes) {
  if (!rtf::looksLikeRtf(bytes)) throw Error("that file is not RTF this Mac can read");
  return rtf::splitLines(rtf::readText(bytes));
}

std::vector<std::string> prepare(const std::vector<std::string>& args, const FileReader& files) {
  if (args.empty()) throw Error("usage: rtf-text <path>");
  std::optional<std::string> bytes = files.read(args.front());
  if (!bytes) throw Error("could not read " + args.front());
  return convert(*bytes);
}

void run(const std::vector<std::string>& args, const FileReader& files) {
  std::vector<std::string> lines;
  try {
    lines = prepare(args, files);
  } catch (const Error& error) {
    fail(error.message());
  }
  for (const std::string& line : lines) {
    writeJsonLine(Json{{"type", "line"}, {"text", line}});
  }
  writeJsonLine(Json{{"type", "done"}});
}

void run(const std::vector<std::string>& args) {
  run(args, diskFiles());
}

}  // namespace tallowbrook::RichText
