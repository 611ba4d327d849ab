#include "cli/dispatch.h"

#include "base/out.h"

#include <gtest/gtest.h>

#include <set>
#include <string_view>

#include "stdout_capture.h"

namespace tallowbrook {
namespace {

TEST(Dispatch, TopLevelUsageListsTheWordsInOrder) {
  EXPECT_EQ(topLevelUsage(),
            "usage: tallowbrook-helper "
            "<capabilities|vision-ocr|pdf-page|pdf-text|answer|record|speak|rtf-text|mcp-bridge|"
            "text-pdf>");
}

TEST(Dispatch, TheTableHasEachWordOnceAndSomethingToRunIt) {
  std::set<std::string_view> seen;
  for (const Subcommand& subcommand : subcommands()) {
    EXPECT_TRUE(seen.insert(subcommand.word).second) << subcommand.word;
    EXPECT_NE(subcommand.run, nullptr) << subcommand.word;
  }
  EXPECT_EQ(seen.size(), 10u);
}

TEST(Dispatch, ReturnsZeroWhenTheSubcommandReturns) {
  StdoutCapture capture;
  EXPECT_EQ(dispatch({"vision-ocr", "--self-test"}), 0);
  EXPECT_NE(capture.text().find("vision-ocr-selftest"), std::string::npos);
}

TEST(DispatchDeathTest, EmptyCommandLineFails) {
  StdoutCapture capture;
  EXPECT_EXIT(dispatch({}), testing::ExitedWithCode(1), "");
  EXPECT_EQ(Json::parse(capture.text())["message"], topLevelUsage());
}

TEST(DispatchDeathTest, UnknownWordFails) {
  StdoutCapture capture;
  EXPECT_EXIT(dispatch({"capabilitie"}), testing::ExitedWithCode(1), "");
  EXPECT_EQ(Json::parse(capture.text())["message"], "unknown command: capabilitie");
}

}  // namespace
}  // namespace tallowbrook
