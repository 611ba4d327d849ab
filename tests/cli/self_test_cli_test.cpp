// `vision-ocr --self-test` as the application runs it.
#include <gtest/gtest.h>

#include "run_helper.h"

namespace {

TEST(SelfTest, PassingReportHasExactKeysAndValues) {
  auto run = runHelper({"vision-ocr", "--self-test"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.out, R"({"type":"vision-ocr-selftest","checks":14,"failed":0,"failures":[]})"
                     "\n");
  auto lines = jsonLines(run.out);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0], (nlohmann::json{{"type", "vision-ocr-selftest"},
                                      {"checks", 14},
                                      {"failed", 0},
                                      {"failures", nlohmann::json::array()}}));
}

TEST(SelfTest, OnlyTheExactWordRunsTheSelfTest) {
  auto run = runHelper({"vision-ocr", "--Self-Test"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out.find("vision-ocr-selftest"), std::string::npos);
}

}  // namespace
