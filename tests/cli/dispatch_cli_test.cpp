// The command line as the application uses it: words in, one JSON line and a status out.
#include <gtest/gtest.h>

#include "run_helper.h"

namespace {

const char* kTopUsage =
    "usage: tallowbrook-helper "
    "<capabilities|vision-ocr|pdf-page|pdf-text|answer|record|speak|rtf-text|mcp-bridge|text-pdf>";

TEST(Dispatch, NoArgumentsPrintsTheTopLevelUsage) {
  auto run = runHelper({});
  expectFailureDocument(run, kTopUsage);
}

TEST(Dispatch, FailureDocumentBytesEscapeSlashes) {
  auto run = runHelper({"/usr/bin/convert"});
  EXPECT_EQ(run.out, R"({"type":"error","message":"unknown command: \/usr\/bin\/convert"})"
                     "\n");
  EXPECT_EQ(run.status, 1);
}

TEST(Dispatch, WordsAreCaseSensitive) {
  expectFailureDocument(runHelper({"Capabilities"}), "unknown command: Capabilities");
  expectFailureDocument(runHelper({"VISION-OCR", "x.png"}), "unknown command: VISION-OCR");
}

TEST(Dispatch, UnknownWordIsQuotedUnchanged) {
  expectFailureDocument(runHelper({" capabilities"}), "unknown command:  capabilities");
  expectFailureDocument(runHelper({""}), "unknown command: ");
  expectFailureDocument(runHelper({"--help"}), "unknown command: --help");
}

TEST(Dispatch, MessageWithLineBreaksStaysOneLine) {
  auto run = runHelper({"two\nlines\r\tand \"quotes\" \\"});
  expectFailureDocument(run, "unknown command: two\nlines\r\tand \"quotes\" \\");
  EXPECT_NE(run.out.find(R"(two\nlines\r\tand \"quotes\" \\)"), std::string::npos) << run.out;
}

TEST(Dispatch, InvalidUtf8InAWordIsReplacedNotLost) {
  auto run = runHelper({"caf\xff\xfe"});
  expectFailureDocument(run, "unknown command: caf\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(Dispatch, NonAsciiIsWrittenAsUtf8) {
  auto run = runHelper({"größe/日本"});
  EXPECT_EQ(run.out, "{\"type\":\"error\",\"message\":\"unknown command: größe\\/日本\"}\n");
}

TEST(Dispatch, VisionOcrWithoutAPathPrintsItsUsage) {
  expectFailureDocument(runHelper({"vision-ocr"}), "usage: vision-ocr <image-path>");
}

TEST(Dispatch, VisionOcrIgnoresWordsAfterThePath) {
  auto run = runHelper({"vision-ocr", "--self-test", "/second/path.png", "third"});
  EXPECT_EQ(run.status, 0);
  auto lines = jsonLines(run.out);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0]["type"], "vision-ocr-selftest");
}

TEST(Dispatch, RecordAloneReportsTheRecordUsage) {
  expectFailureDocument(runHelper({"record"}),
                        "usage: record <permissions|request-microphone|devices|start>");
}

TEST(Dispatch, RecordRejectsAnUnknownSubcommand) {
  expectFailureDocument(runHelper({"record", "Start"}), "unknown record subcommand: Start");
}

TEST(Dispatch, EveryWordReachesItsSubcommand) {
  // Each word is dispatched to its own subcommand, never reported as unknown.
  for (const char* word : {"capabilities", "vision-ocr", "pdf-page", "pdf-text", "answer", "record",
                           "speak", "rtf-text", "mcp-bridge", "text-pdf"}) {
    RunOptions options;
    options.input = "{}\n";
    auto run = runHelper({word, "--self-test"}, options);
    EXPECT_FALSE(run.timedOut) << word;
    EXPECT_EQ(run.out.find("unknown command"), std::string::npos) << word << ": " << run.out;
    EXPECT_EQ(jsonLines(run.out).size(), 1u) << word;
  }
}

}  // namespace
