// rtf-text: the plain text of an RTF file as line records, then a done record.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tallowbrook::RichText {

// Reads whole files. The command reads the disk; tests hand in their own files.
class FileReader {
 public:
  virtual ~FileReader() = default;
  // The file's bytes, or nothing when it cannot be read (missing, a directory, no permission,
  // or too large). A reader may stop at an opening that cannot begin RTF and return only that
  // opening, which convert() refuses like the whole file.
  virtual std::optional<std::string> read(const std::string& path) const = 0;
};

// The opening a disk reader looks at before it reads on: enough for a byte order mark, the
// blanks a writer may put first and "{\rtf".
inline constexpr size_t kRtfOpeningBytes = 4096;
// Far above any real RTF document (pictures included); a larger file or an endless stream is
// not read past it.
inline constexpr size_t kMaxRtfBytes = size_t(1) << 30;

// The real file system, reading at most `limit` bytes of a file: a file (or device, or pipe)
// whose first kRtfOpeningBytes (or all of it, when shorter) do not begin like RTF is not read
// further, and one longer than `limit` cannot be read. Any thread.
std::unique_ptr<FileReader> makeDiskFiles(size_t limit);
// The one the command uses, with kMaxRtfBytes.
const FileReader& diskFiles();

// The lines of RTF `bytes` (each non-empty, trimmed); throws Error "that file is not RTF this
// Mac can read" when they do not begin like RTF. Pure.
std::vector<std::string> convert(std::string_view bytes);

// Everything a run decides before printing: throws Error "usage: rtf-text <path>" without
// arguments, "could not read <path>" when the first argument's file cannot be read (or is larger
// than the reader reads); else convert(). Words after the path are ignored.
std::vector<std::string> prepare(const std::vector<std::string>& args, const FileReader& files);

// Prints {"type":"line","text":...} for each line and {"type":"done"}, each flushed at once;
// a failure goes through `fail` (exit status 1) before anything else is printed.
void run(const std::vector<std::string>& args, const FileReader& files);
void run(const std::vector<std::string>& args);

}  // namespace tallowbrook::RichText
