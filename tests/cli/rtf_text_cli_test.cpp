// rtf-text as the application runs it: the built helper on real RTF files, on missing and
// foreign files, and on every corpus file cut short.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "run_helper.h"

namespace {

const std::string kCorpus = RTF_CORPUS_DIR;
const std::string kNotRtf = "that file is not RTF this Mac can read";

std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::vector<std::string> corpusFiles() {
  std::vector<std::string> names;
  if (DIR* dir = opendir(kCorpus.c_str())) {
    while (dirent* entry = readdir(dir)) {
      std::string name = entry->d_name;
      if (name.size() > 4 && name.ends_with(".rtf")) names.push_back(name);
    }
    closedir(dir);
  }
  std::sort(names.begin(), names.end());
  return names;
}

// A scratch folder removed with its files at the end of the test.
class ScratchDir {
 public:
  ScratchDir() {
    char pattern[] = "/tmp/tallowbrook-rtf-XXXXXX";
    path_ = mkdtemp(pattern);
  }
  ~ScratchDir() {
    for (const std::string& file : files_) unlink(file.c_str());
    rmdir(path_.c_str());
  }
  std::string write(const std::string& name, const std::string& bytes) {
    std::string file = path_ + "/" + name;
    std::ofstream(file, std::ios::binary) << bytes;
    files_.push_back(file);
    return file;
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  std::vector<std::string> files_;
};

bool isTrimmed(const std::string& text) {
  const std::string blanks = " \t";
  if (text.empty()) return false;
  if (blanks.find(text.front()) != std::string::npos) return false;
  if (blanks.find(text.back()) != std::string::npos) return false;
  return text.find_first_of("\n\r\v\f") == std::string::npos;
}

// Checks a successful run's records; returns the lines' texts.
std::vector<std::string> expectLines(const HelperRun& run, const std::string& what) {
  std::vector<std::string> texts;
  EXPECT_FALSE(run.timedOut) << what;
  EXPECT_EQ(run.signal, 0) << what;
  EXPECT_EQ(run.status, 0) << what << ": " << run.out.substr(0, 200);
  EXPECT_EQ(run.err, "") << what;
  auto records = jsonLines(run.out);
  if (records.empty()) {
    ADD_FAILURE() << what << ": no done record";
    return texts;
  }
  EXPECT_EQ(records.back(), (nlohmann::json{{"type", "done"}})) << what;
  for (size_t i = 0; i + 1 < records.size(); ++i) {
    const auto& record = records[i];
    EXPECT_EQ(record.size(), 2u) << what;
    EXPECT_EQ(record.value("type", ""), "line") << what;
    const std::string text = record.value("text", "");
    EXPECT_TRUE(isTrimmed(text)) << what << ": [" << text << "]";
    texts.push_back(text);
  }
  return texts;
}

TEST(RtfTextCli, NoPathIsAUsageFailure) {
  expectFailureDocument(runHelper({"rtf-text"}), "usage: rtf-text <path>");
}

TEST(RtfTextCli, MissingFile) {
  auto run = runHelper({"rtf-text", "/no/such/file.rtf"});
  expectFailureDocument(run, "could not read /no/such/file.rtf");
  EXPECT_NE(run.out.find("could not read \\/no\\/such\\/file.rtf"), std::string::npos) << run.out;
}

TEST(RtfTextCli, ADirectoryCannotBeRead) {
  ScratchDir dir;
  expectFailureDocument(runHelper({"rtf-text", dir.path()}), "could not read " + dir.path());
}

TEST(RtfTextCli, NotRtf) {
  ScratchDir dir;
  expectFailureDocument(runHelper({"rtf-text", dir.write("notes.txt", "Just some text.\n")}),
                        kNotRtf);
  expectFailureDocument(runHelper({"rtf-text", dir.write("empty.rtf", "")}), kNotRtf);
  expectFailureDocument(runHelper({"rtf-text", dir.write("png.rtf", "\x89PNG\r\n\x1a\n")}),
                        kNotRtf);
}

TEST(RtfTextCli, ADeviceThatNeverEndsIsRefusedAtOnce) {
  RunOptions options;
  options.timeoutMs = 10000;
  auto run = runHelper({"rtf-text", "/dev/zero"}, options);
  EXPECT_FALSE(run.timedOut);
  expectFailureDocument(run, "that file is not RTF this Mac can read");
}

TEST(RtfTextCli, APipeThatNeverEndsIsRefusedAtOnce) {
  // The helper reads a pipe fed forever by `yes`; the opening is enough to refuse it.
  RunOptions options;
  options.timeoutMs = 10000;
  auto run = runHelperFedForever({"rtf-text", "/dev/stdin"}, options);
  EXPECT_FALSE(run.timedOut);
  expectFailureDocument(run, "that file is not RTF this Mac can read");
}

TEST(RtfTextCli, CorpusFilesThatAreNotRtf) {
  expectFailureDocument(runHelper({"rtf-text", kCorpus + "/rtfpipe__RtfParserTest_fail_0.rtf"}),
                        kNotRtf);
  expectFailureDocument(runHelper({"rtf-text", kCorpus + "/rtfpipe__RtfParserTest_fail_4.rtf"}),
                        kNotRtf);
}

TEST(RtfTextCli, ReadsADocument) {
  auto run = runHelper({"rtf-text", kCorpus + "/striprtf__french.rtf", "ignored", "words"});
  EXPECT_EQ(expectLines(run, "french"),
            (std::vector<std::string>{"10\u2018000", "a 10'000  b.", "a 10\u2018000 b c!",
                                      "a a a 10\u00b4000 d?"}));
}

TEST(RtfTextCli, ReadsJapaneseInShiftJis) {
  auto texts =
      expectLines(runHelper({"rtf-text", kCorpus + "/rtfpipe-rtf2xml__japanese.rtf"}), "japanese");
  ASSERT_GE(texts.size(), 3u);
  EXPECT_EQ(texts[1], "\u30db\u30fc\u30e0");
  EXPECT_EQ(texts[2], "\u3088\u304f\u3042\u308b\u8cea\u554f (FAQ)");
}

TEST(RtfTextCli, DocumentWithoutVisibleTextGivesOnlyDone) {
  ScratchDir dir;
  auto file =
      dir.write("blank.rtf", "{\\rtf1\\ansi{\\fonttbl{\\f0 Times;}}\\par   \\par\\tab\\par}");
  auto run = runHelper({"rtf-text", file});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "{\"type\":\"done\"}\n");
}

TEST(RtfTextCli, HostileFilesAreReadAsFarAsTheyGo) {
  ScratchDir dir;
  std::string deep = "{\\rtf1 before ";
  deep.append(1000000, '{');
  deep += "deep";
  deep.append(1000000, '}');
  deep += " after}";
  EXPECT_EQ(expectLines(runHelper({"rtf-text", dir.write("deep.rtf", deep)}), "deep"),
            std::vector<std::string>{"before deep after"});

  auto bin = dir.write("bin.rtf", "{\\rtf1 text\\par{\\pict\\bin1000000000 abc}}");
  EXPECT_EQ(expectLines(runHelper({"rtf-text", bin}), "bin"), std::vector<std::string>{"text"});

  auto nul = dir.write("nul.rtf", std::string("{\\rtf1 a\0b\\par\0\0c}", 18));
  EXPECT_EQ(expectLines(runHelper({"rtf-text", nul}), "nul"),
            (std::vector<std::string>{"ab", "c"}));

  auto open = dir.write("open.rtf", "{\\rtf1 {\\b one\\par {two");
  EXPECT_EQ(expectLines(runHelper({"rtf-text", open}), "open"),
            (std::vector<std::string>{"one", "two"}));

  auto closed = dir.write("closed.rtf", "{\\rtf1 one}}} two");
  EXPECT_EQ(expectLines(runHelper({"rtf-text", closed}), "closed"),
            std::vector<std::string>{"one"});
}

TEST(RtfTextCli, EveryCorpusFileGivesWellFormedRecords) {
  auto names = corpusFiles();
  ASSERT_GE(names.size(), 60u);
  for (const std::string& name : names) {
    auto run = runHelper({"rtf-text", kCorpus + "/" + name});
    if (run.status == 1) {
      expectFailureDocument(run, kNotRtf);
    } else {
      expectLines(run, name);
    }
  }
}

// Every corpus file cut at 50 evenly spaced lengths gives lines and done, or the not-RTF
// failure; never a crash or a hang.
TEST(RtfTextCli, EveryCorpusFileCutShort) {
  ScratchDir dir;
  auto names = corpusFiles();
  ASSERT_GE(names.size(), 60u);
  for (const std::string& name : names) {
    const std::string bytes = slurp(kCorpus + "/" + name);
    // A file that is RTF is refused only while the cut leaves its signature incomplete.
    const bool wholeIsRtf = runHelper({"rtf-text", kCorpus + "/" + name}).status == 0;
    for (size_t k = 0; k < 50; ++k) {
      const size_t length = bytes.size() * k / 50;
      const std::string what = name + " cut at " + std::to_string(length);
      auto file = dir.write("cut-" + std::to_string(k) + ".rtf", bytes.substr(0, length));
      RunOptions options;
      options.timeoutMs = 20000;
      auto run = runHelper({"rtf-text", file}, options);
      ASSERT_FALSE(run.timedOut) << what;
      ASSERT_EQ(run.signal, 0) << what;
      if (run.status == 1) {
        expectFailureDocument(run, kNotRtf);
        if (wholeIsRtf) {
          EXPECT_LT(length, 5u + bytes.find("{\\rtf")) << what;
        }
      } else {
        expectLines(run, what);
      }
    }
  }
}

}  // namespace
