// rtf-text: the plain text of an RTF file as line records, then a done record.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tallowbrook::RichText {

// Reads whole files. The command reads the disk; tests hand in their own files.
class FileReader {
 public:
  virtual ~FileReader() = default;
  // The file's bytes, or nothing when it cannot be read (missing, a directory, no permission).
  virtual std::optional<std::string> read(const std::string& path) const = 0;
};

// The real file system.
const FileReader& diskFiles();

// What a run prints: the failure message, or the lines (each non-empty, trimmed).
struct Outcome {
  std::optional<std::string> failure;
  std::vector<std::string> lines;
};

// The lines of RTF `bytes`, or the failure "that file is not RTF this Mac can read" when they
// do not begin like RTF.
Outcome convert(std::string_view bytes);

// Everything a run decides before printing: "usage: rtf-text <path>" without arguments,
// "could not read <path>" when the first argument's file cannot be read, else convert(). Words
// after the path are ignored.
Outcome prepare(const std::vector<std::string>& args, const FileReader& files);

// Prints {"type":"line","text":...} for each line and {"type":"done"}, each flushed at once;
// a failure goes through `fail` (exit status 1) before anything else is printed.
void run(const std::vector<std::string>& args, const FileReader& files);
void run(const std::vector<std::string>& args);

}  // namespace tallowbrook::RichText
