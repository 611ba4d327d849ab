#include "base/error.h"
#include "documents/rich_text.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <map>

#include "stdout_capture.h"

namespace tallowbrook::RichText {
namespace {

class FakeFiles : public FileReader {
 public:
  std::map<std::string, std::string> files;
  std::optional<std::string> read(const std::string& path) const override {
    auto found = files.find(path);
    if (found == files.end()) return std::nullopt;
    return found->second;
  }
};

using Lines = std::vector<std::string>;

// The message `body` fails with, or "(no failure)" when it returns.
template <typename Body>
std::string failureOf(Body body) {
  try {
    body();
  } catch (const Error& error) {
    return error.message();
  }
  return "(no failure)";
}

TEST(RichText, NoPathIsAUsageFailure) {
  FakeFiles files;
  EXPECT_EQ(failureOf([&] { prepare({}, files); }), "usage: rtf-text <path>");
}

TEST(RichText, UnreadableFile) {
  FakeFiles files;
  EXPECT_EQ(failureOf([&] { prepare({"/no/such.rtf"}, files); }), "could not read /no/such.rtf");
}

TEST(RichText, NotRtf) {
  FakeFiles files;
  files.files["plain.txt"] = "just text";
  files.files["empty.rtf"] = "";
  EXPECT_EQ(failureOf([&] { prepare({"plain.txt"}, files); }),
            "that file is not RTF this Mac can read");
  EXPECT_EQ(failureOf([&] { prepare({"empty.rtf"}, files); }),
            "that file is not RTF this Mac can read");
}

TEST(RichText, FurtherArgumentsAreIgnored) {
  FakeFiles files;
  files.files["a.rtf"] = "{\\rtf1 A}";
  EXPECT_EQ(prepare({"a.rtf", "b.rtf", "--flag"}, files), Lines{"A"});
}

TEST(RichText, NoVisibleTextGivesNoLines) {
  EXPECT_EQ(convert("{\\rtf1{\\fonttbl{\\f0 Times;}}{\\info{\\title T}}\\par\\par }"), Lines{});
}

TEST(RichText, BlankLinesAndLinesOfSpacesGiveNothing) {
  EXPECT_EQ(convert("{\\rtf1 one\\par\\par   \\par\\tab\\par two\\line\\line three}"),
            (Lines{"one", "two", "three"}));
}

TEST(RichText, IndentationIsRemovedAndInnerSpacingKept) {
  EXPECT_EQ(convert("{\\rtf1 \\tab   indented  text\\tab \\par\\~\\~x}"),
            (Lines{"indented  text", "x"}));
}

TEST(RichText, RunPrintsLinesThenDone) {
  FakeFiles files;
  files.files["d.rtf"] = "{\\rtf1\\ansi caf\\'e9 / x\\par second}";
  StdoutCapture capture;
  run({"d.rtf"}, files);
  EXPECT_EQ(capture.text(),
            "{\"type\":\"line\",\"text\":\"caf\u00e9 \\/ x\"}\n"
            "{\"type\":\"line\",\"text\":\"second\"}\n"
            "{\"type\":\"done\"}\n");
}

TEST(RichText, RunOfAnEmptyDocumentPrintsOnlyDone) {
  FakeFiles files;
  files.files["e.rtf"] = "{\\rtf1}";
  StdoutCapture capture;
  run({"e.rtf"}, files);
  EXPECT_EQ(capture.text(), "{\"type\":\"done\"}\n");
}

// A file in a fresh temporary folder, removed with it.
class TempFile {
 public:
  explicit TempFile(const std::string& content, off_t sparseTail = 0) {
    char dir[] = "/tmp/tallowbrook-rtf-XXXXXX";
    dir_ = mkdtemp(dir);
    path_ = dir_ + "/file";
    std::ofstream(path_, std::ios::binary) << content;
    if (sparseTail > 0) {
      EXPECT_EQ(truncate(path_.c_str(), off_t(content.size()) + sparseTail), 0);
    }
  }
  ~TempFile() {
    unlink(path_.c_str());
    rmdir(dir_.c_str());
  }
  const std::string& path() const { return path_; }

 private:
  std::string dir_, path_;
};

TEST(RichText, DiskFilesStopAtAnOpeningThatIsNotRtf) {
  // 50 MB that do not begin like RTF: only the opening is read.
  TempFile large("PK\x03\x04 not a document", 50 << 20);
  auto bytes = diskFiles().read(large.path());
  ASSERT_TRUE(bytes);
  EXPECT_LE(bytes->size(), size_t(65536));
  EXPECT_GE(bytes->size(), kRtfOpeningBytes);
  EXPECT_EQ(failureOf([&] { convert(*bytes); }), "that file is not RTF this Mac can read");
  // A device that never ends.
  auto zeros = diskFiles().read("/dev/zero");
  ASSERT_TRUE(zeros);
  EXPECT_LE(zeros->size(), size_t(65536));
  EXPECT_EQ(failureOf([&] { prepare({"/dev/zero"}, diskFiles()); }),
            "that file is not RTF this Mac can read");
}

TEST(RichText, DiskFilesReadRtfWholeUpToTheLimit) {
  std::string document = "\xEF\xBB\xBF \r\n{\\rtf1 " + std::string(100000, 'a') + "}";
  TempFile file(document);
  EXPECT_EQ(makeDiskFiles(document.size())->read(file.path()), document);
  EXPECT_EQ(diskFiles().read(file.path()), document);
  // One byte more than the reader takes: the file cannot be read.
  EXPECT_FALSE(makeDiskFiles(document.size() - 1)->read(file.path()));
  EXPECT_EQ(failureOf([&] { prepare({file.path()}, *makeDiskFiles(1000)); }),
            "could not read " + file.path());
  // Short files are checked whole.
  TempFile tiny("{\\rtf1}");
  EXPECT_EQ(diskFiles().read(tiny.path()), "{\\rtf1}");
  TempFile empty("");
  EXPECT_EQ(diskFiles().read(empty.path()), "");
}

TEST(RichText, DiskFilesReadsAndRefuses) {
  EXPECT_FALSE(diskFiles().read("/nonexistent/file.rtf"));
  EXPECT_FALSE(diskFiles().read("/"));  // a directory
  auto self = diskFiles().read("/proc/self/cmdline");
  EXPECT_TRUE(self);
}

}  // namespace
}  // namespace tallowbrook::RichText
