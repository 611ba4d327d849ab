// pdf-text as the application runs it: the built helper on PDFs made by the test run.
#include <algorithm>

#include <gtest/gtest.h>

#include "pdf_test_support.h"
#include "run_helper.h"

namespace {

using nlohmann::json;
using pdf_test::fixture;

json pageText(const std::string& name, const std::string& page = "1") {
  auto run = runHelper({"pdf-text", fixture(name), page});
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_EQ(run.err, "");
  auto lines = jsonLines(run.out);
  EXPECT_EQ(lines.size(), 1u) << run.out;
  if (lines.empty()) return json();
  EXPECT_EQ(lines[0]["type"], "pdf-text");
  return lines[0];
}

std::vector<std::string> texts(const json& result) {
  std::vector<std::string> out;
  for (const auto& line : result["lines"]) out.push_back(line["text"]);
  return out;
}

TEST(PdfTextCli, LinesOfAPageWithTheirBoxes) {
  json result = pageText("three-pages.pdf", "2");
  EXPECT_EQ(result["page"], 2);
  EXPECT_EQ(result["pages"], 3);
  ASSERT_EQ(texts(result), (std::vector<std::string>{"Page two of three", "Second line here"}));
  const json& first = result["lines"][0];
  // Helvetica 12 pt on the baseline y = 700 of a 612 x 792 page, starting at x = 72.
  EXPECT_NEAR(first["x"].get<double>(), 72.0 / 612, 1e-6);
  double top = first["y"].get<double>() * 792;
  double height = first["h"].get<double>() * 792;
  EXPECT_GT(top, 792 - 700 - 14);
  EXPECT_LT(top, 792 - 700 - 6);
  EXPECT_GT(height, 9);
  EXPECT_LT(height, 16);
  EXPECT_GT(top + height, 792 - 700);  // the descender reaches below the baseline
  EXPECT_NEAR(first["w"].get<double>() * 612, 94, 8);
  EXPECT_GT(result["lines"][1]["y"].get<double>(), first["y"].get<double>());
}

TEST(PdfTextCli, ASuperscriptFarAboveTheLineStartsItsOwnLine) {
  json result = pageText("superscript.pdf");
  EXPECT_EQ(texts(result), (std::vector<std::string>{"E = mc", "2", "x2"}));
}

TEST(PdfTextCli, ALineOfSpacesIsDropped) {
  EXPECT_EQ(texts(pageText("spaces.pdf")),
            (std::vector<std::string>{"Words above", "Words below"}));
}

TEST(PdfTextCli, SpacesDoNotWidenALine) {
  // "Words above" ends with the "e" of "above": the box ends there, not at a space after it.
  json line = pageText("spaces.pdf")["lines"][0];
  double right = (line["x"].get<double>() + line["w"].get<double>()) * 612;
  EXPECT_NEAR(right, 72 + 70.7, 1.5);
}

TEST(PdfTextCli, BoxesAreRelativeToTheCropBoxAndNotClamped) {
  json result = pageText("cropbox.pdf");
  ASSERT_EQ(result["lines"].size(), 2u);
  for (const auto& line : result["lines"]) {
    if (line["text"] == "Edge") {
      EXPECT_NEAR(line["x"].get<double>(), -3.0 / 300, 1e-6);  // starts left of the crop box
    } else {
      EXPECT_EQ(line["text"], "Cropped words");
      EXPECT_NEAR(line["x"].get<double>(), 50.0 / 300, 1e-6);
      EXPECT_LT(line["y"].get<double>(), 0.1);
    }
  }
}

TEST(PdfTextCli, ALineFillingTheCropBoxRunsFromTopToBottom) {
  json result = pageText("one-line-cropbox.pdf");
  ASSERT_EQ(result["lines"].size(), 1u);
  const json& line = result["lines"][0];
  EXPECT_EQ(line["text"], "Edge to edge");
  EXPECT_NEAR(line["y"].get<double>(), 0, 1e-9);
  EXPECT_NEAR(line["y"].get<double>() + line["h"].get<double>(), 1, 1e-9);
  EXPECT_NEAR(line["x"].get<double>(), 10.0 / 350, 1e-9);
}

TEST(PdfTextCli, ThePagesOwnRotationDoesNotMoveTheBoxes) {
  json plain = pageText("unturned.pdf");
  for (const char* turned : {"turned-90.pdf", "turned-270.pdf"}) {
    json result = pageText(turned);
    ASSERT_EQ(result["lines"].size(), plain["lines"].size()) << turned;
    for (const auto& expected : plain["lines"]) {
      auto found = std::find_if(result["lines"].begin(), result["lines"].end(),
                                [&](const json& line) { return line["text"] == expected["text"]; });
      ASSERT_NE(found, result["lines"].end()) << expected["text"];
      for (const char* key : {"x", "y", "w", "h"}) {
        EXPECT_NEAR((*found)[key].get<double>(), expected[key].get<double>(), 1e-9) << key;
      }
    }
  }
}

TEST(PdfTextCli, APageWhoseDrawingGoesWrongStillGivesItsText) {
  std::vector<std::string> lines = texts(pageText("broken-content.pdf"));
  EXPECT_NE(std::find(lines.begin(), lines.end(), "Still here"), lines.end());
}

TEST(PdfTextCli, APageWithoutTextHasAnEmptyList) {
  json result = pageText("blank.pdf");
  EXPECT_TRUE(result["lines"].is_array());
  EXPECT_TRUE(result["lines"].empty());
}

TEST(PdfTextCli, ArgumentFailures) {
  expectFailureDocument(runHelper({"pdf-text"}), "usage: pdf-text <pdf-path> <page-number>");
  expectFailureDocument(runHelper({"pdf-text", fixture("three-pages.pdf")}),
                        "usage: pdf-text <pdf-path> <page-number>");
  for (const char* page : {"0", "-3", "two"}) {
    expectFailureDocument(runHelper({"pdf-text", fixture("three-pages.pdf"), page}),
                          std::string("pdf-text: page number must be 1 or more, got ") + page);
  }
}

TEST(PdfTextCli, DocumentFailures) {
  for (const char* name : {"empty.pdf", "not-a-pdf.pdf", "malformed.pdf", "truncated.pdf",
                           "encrypted.pdf", "missing.pdf"}) {
    expectFailureDocument(runHelper({"pdf-text", fixture(name), "1"}),
                          "pdf-text: could not open " + fixture(name) + " as a PDF");
  }
  expectFailureDocument(runHelper({"pdf-text", fixture("three-pages.pdf"), "4"}),
                        "pdf-text: this PDF has 3 pages, asked for 4");
  expectFailureDocument(runHelper({"pdf-text", fixture("flat-cropbox.pdf"), "1"}),
                        "pdf-text: page 1 has an empty crop box");
}

TEST(PdfTextCli, AHugePageCountEndsInAFailureOrAResult) {
  for (const char* page : {"1", "2", "2147483647"}) {
    auto run = pdf_test::runBounded({"pdf-text", fixture("huge-count.pdf"), page});
    EXPECT_FALSE(run.timedOut);
    EXPECT_TRUE(run.status == 0 || run.status == 1) << run.status;
    auto lines = jsonLines(run.out);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0]["type"], run.status == 0 ? "pdf-text" : "error");
  }
}

}  // namespace
