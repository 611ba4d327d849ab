#include "documents/rich_text.h"

#include <gtest/gtest.h>

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

TEST(RichText, NoPathIsAUsageFailure) {
  FakeFiles files;
  Outcome outcome = prepare({}, files);
  EXPECT_EQ(outcome.failure, "usage: rtf-text <path>");
}

TEST(RichText, UnreadableFile) {
  FakeFiles files;
  EXPECT_EQ(prepare({"/no/such.rtf"}, files).failure, "could not read /no/such.rtf");
}

TEST(RichText, NotRtf) {
  FakeFiles files;
  files.files["plain.txt"] = "just text";
  files.files["empty.rtf"] = "";
  EXPECT_EQ(prepare({"plain.txt"}, files).failure, "that file is not RTF this Mac can read");
  EXPECT_EQ(prepare({"empty.rtf"}, files).failure, "that file is not RTF this Mac can read");
}

TEST(RichText, FurtherArgumentsAreIgnored) {
  FakeFiles files;
  files.files["a.rtf"] = "{\\rtf1 A}";
  Outcome outcome = prepare({"a.rtf", "b.rtf", "--flag"}, files);
  EXPECT_FALSE(outcome.failure);
  EXPECT_EQ(outcome.lines, Lines{"A"});
}

TEST(RichText, NoVisibleTextGivesNoLines) {
  Outcome outcome = convert("{\\rtf1{\\fonttbl{\\f0 Times;}}{\\info{\\title T}}\\par\\par }");
  EXPECT_FALSE(outcome.failure);
  EXPECT_EQ(outcome.lines, Lines{});
}

TEST(RichText, BlankLinesAndLinesOfSpacesGiveNothing) {
  EXPECT_EQ(convert("{\\rtf1 one\\par\\par   \\par\\tab\\par two\\line\\line three}").lines,
            (Lines{"one", "two", "three"}));
}

TEST(RichText, IndentationIsRemovedAndInnerSpacingKept) {
  EXPECT_EQ(convert("{\\rtf1 \\tab   indented  text\\tab \\par\\~\\~x}").lines,
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

TEST(RichText, DiskFilesReadsAndRefuses) {
  EXPECT_FALSE(diskFiles().read("/nonexistent/file.rtf"));
  EXPECT_FALSE(diskFiles().read("/"));  // a directory
  auto self = diskFiles().read("/proc/self/cmdline");
  EXPECT_TRUE(self);
}

}  // namespace
}  // namespace tallowbrook::RichText
