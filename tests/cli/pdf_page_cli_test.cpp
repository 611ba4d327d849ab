// pdf-page as the application runs it: the built helper on PDFs made by the test run.
#include <gtest/gtest.h>

#include "pdf_test_support.h"
#include "run_helper.h"

namespace {

using pdf_test::fixture;
using pdf_test::Image;
using pdf_test::readPng;
using pdf_test::ScratchDir;

nlohmann::json expectSummary(const HelperRun& run) {
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_EQ(run.err, "");
  auto lines = jsonLines(run.out);
  EXPECT_EQ(lines.size(), 1u) << run.out;
  return lines.empty() ? nlohmann::json() : lines[0];
}

bool isColour(const Image& image, int x, int y, int r, int g, int b) {
  const uint8_t* p = image.pixel(x, y);
  return p[0] == r && p[1] == g && p[2] == b;
}

TEST(PdfPageCli, WritesA1404By1872ImageByDefault) {
  ScratchDir dir;
  auto run = runHelper({"pdf-page", fixture("three-pages.pdf"), "1", dir.file("page.png")});
  auto summary = expectSummary(run);
  EXPECT_EQ(summary, nlohmann::json({{"type", "pdf-page"},
                                     {"page", 1},
                                     {"pages", 3},
                                     {"width", 1404},
                                     {"height", 1872},
                                     {"path", dir.file("page.png")}}));
  EXPECT_NE(run.out.find("\\/tmp\\/"), std::string::npos) << run.out;
  auto image = readPng(dir.file("page.png"));
  ASSERT_TRUE(image);
  EXPECT_EQ(image->width, 1404);
  EXPECT_EQ(image->height, 1872);
}

TEST(PdfPageCli, AWidthAloneKeepsTheDefaultHeight) {
  ScratchDir dir;
  auto summary = expectSummary(
      runHelper({"pdf-page", fixture("three-pages.pdf"), "3", dir.file("p.png"), "800"}));
  EXPECT_EQ(summary["width"], 800);
  EXPECT_EQ(summary["height"], 1872);
  EXPECT_EQ(summary["page"], 3);
  auto image = readPng(dir.file("p.png"));
  ASSERT_TRUE(image);
  EXPECT_EQ(image->width, 800);
  EXPECT_EQ(image->height, 1872);
}

TEST(PdfPageCli, AnUnparsableWidthFallsBackSilently) {
  ScratchDir dir;
  auto summary = expectSummary(
      runHelper({"pdf-page", fixture("three-pages.pdf"), "+2", dir.file("p.png"), "wide", "600"}));
  EXPECT_EQ(summary["width"], 1404);
  EXPECT_EQ(summary["height"], 600);
  auto image = readPng(dir.file("p.png"));
  ASSERT_TRUE(image);
  EXPECT_EQ(image->width, 1404);
  EXPECT_EQ(image->height, 600);
}

TEST(PdfPageCli, Width8000IsAcceptedAndOneMoreOrZeroIsNot) {
  ScratchDir dir;
  auto summary = expectSummary(
      runHelper({"pdf-page", fixture("blank.pdf"), "1", dir.file("w.png"), "8000", "4"}));
  EXPECT_EQ(summary["width"], 8000);
  auto image = readPng(dir.file("w.png"));
  ASSERT_TRUE(image);
  EXPECT_EQ(image->width, 8000);
  expectFailureDocument(
      runHelper({"pdf-page", fixture("blank.pdf"), "1", dir.file("x.png"), "8001"}),
      "pdf-page: 8001x1872 is not a drawable size");
  expectFailureDocument(runHelper({"pdf-page", fixture("blank.pdf"), "1", dir.file("x.png"), "0"}),
                        "pdf-page: 0x1872 is not a drawable size");
  expectFailureDocument(
      runHelper({"pdf-page", fixture("blank.pdf"), "1", dir.file("x.png"), "100", "-2"}),
      "pdf-page: 100x-2 is not a drawable size");
}

TEST(PdfPageCli, ALandscapePageIsStretchedNotLetterboxed) {
  ScratchDir dir;
  expectSummary(runHelper({"pdf-page", fixture("landscape.pdf"), "1", dir.file("l.png")}));
  auto image = readPng(dir.file("l.png"));
  ASSERT_TRUE(image);
  // The page's left half is black: in a stretched image that is the left half at every height.
  for (int y : {0, 5, 936, 1866, 1871}) {
    EXPECT_TRUE(isColour(*image, 2, y, 0, 0, 0)) << y;
    EXPECT_TRUE(isColour(*image, 690, y, 0, 0, 0)) << y;
    EXPECT_TRUE(isColour(*image, 714, y, 255, 255, 255)) << y;
    EXPECT_TRUE(isColour(*image, 1401, y, 255, 255, 255)) << y;
  }
}

TEST(PdfPageCli, TheCropBoxFillsTheImage) {
  ScratchDir dir;
  expectSummary(
      runHelper({"pdf-page", fixture("cropbox.pdf"), "1", dir.file("c.png"), "300", "300"}));
  auto image = readPng(dir.file("c.png"));
  ASSERT_TRUE(image);
  // Left half red, right half white; the black outside the crop box never shows.
  for (int y : {0, 150, 299}) {
    EXPECT_TRUE(isColour(*image, 0, y, 255, 0, 0)) << y;
    EXPECT_TRUE(isColour(*image, 140, y, 255, 0, 0)) << y;
    EXPECT_TRUE(isColour(*image, 299, y, 255, 255, 255)) << y;
  }
}

TEST(PdfPageCli, TransparentAreasComeOutWhite) {
  ScratchDir dir;
  expectSummary(
      runHelper({"pdf-page", fixture("blank.pdf"), "1", dir.file("b.png"), "200", "300"}));
  auto image = readPng(dir.file("b.png"));
  ASSERT_TRUE(image);
  EXPECT_TRUE(
      std::all_of(image->rgb.begin(), image->rgb.end(), [](uint8_t v) { return v == 255; }));
}

TEST(PdfPageCli, ThePagesOwnRotationIsNotApplied) {
  ScratchDir dir;
  expectSummary(runHelper({"pdf-page", fixture("unturned.pdf"), "1", dir.file("u.png")}));
  auto plain = readPng(dir.file("u.png"));
  ASSERT_TRUE(plain);
  for (const char* turned : {"turned-90.pdf", "turned-270.pdf"}) {
    expectSummary(runHelper({"pdf-page", fixture(turned), "1", dir.file("t.png")}));
    auto image = readPng(dir.file("t.png"));
    ASSERT_TRUE(image) << turned;
    EXPECT_EQ(image->width, 1404);
    EXPECT_EQ(image->height, 1872);
    EXPECT_EQ(image->rgb, plain->rgb) << turned;
  }
}

TEST(PdfPageCli, CommonReadersReadTheImage) {
  ScratchDir dir;
  expectSummary(runHelper({"pdf-page", fixture("cropbox.pdf"), "1", dir.file("c.png")}));
  expectSummary(runHelper({"pdf-page", fixture("three-pages.pdf"), "1", dir.file("g.png")}));
  for (const char* name : {"c.png", "g.png"}) {
    auto pil = runProgram({"/usr/bin/python3", "-c",
                           "import sys; from PIL import Image; im = Image.open(sys.argv[1]); "
                           "im.load(); print(im.size[0], im.size[1])",
                           dir.file(name)});
    EXPECT_EQ(pil.status, 0) << pil.err;
    EXPECT_EQ(pil.out, "1404 1872\n");
  }
}

TEST(PdfPageCli, APageWhoseDrawingGoesWrongStillGivesAnImage) {
  ScratchDir dir;
  expectSummary(runHelper({"pdf-page", fixture("broken-content.pdf"), "1", dir.file("b.png")}));
  auto image = readPng(dir.file("b.png"));
  ASSERT_TRUE(image);
  EXPECT_EQ(image->width, 1404);
}

TEST(PdfPageCli, ABitmapThatDoesNotFitInMemoryIsAFailure) {
  ScratchDir dir;
  // 8000 x 8000 needs several hundred megabytes; 300 MB of address space is not enough.
  std::string helper = HELPER_PATH;
  auto run =
      runProgram({"/bin/sh", "-c", "ulimit -v 300000 && exec \"$0\" \"$@\"", helper, "pdf-page",
                  fixture("three-pages.pdf"), "1", dir.file("big.png"), "8000", "8000"});
  expectFailureDocument(run, "pdf-page: could not allocate a 8000x8000 context");
}

TEST(PdfPageCli, ArgumentFailures) {
  expectFailureDocument(runHelper({"pdf-page"}),
                        "usage: pdf-page <pdf-path> <page-number> <out.png> [width] [height]");
  expectFailureDocument(runHelper({"pdf-page", "a.pdf", "1"}),
                        "usage: pdf-page <pdf-path> <page-number> <out.png> [width] [height]");
  for (const char* page : {"0", "-3", "two"}) {
    expectFailureDocument(runHelper({"pdf-page", "/missing.pdf", page, "/tmp/x.png"}),
                          std::string("pdf-page: page number must be 1 or more, got ") + page);
  }
}

TEST(PdfPageCli, DocumentFailures) {
  ScratchDir dir;
  for (const char* name : {"empty.pdf", "not-a-pdf.pdf", "malformed.pdf", "truncated.pdf",
                           "encrypted.pdf", "missing.pdf"}) {
    expectFailureDocument(runHelper({"pdf-page", fixture(name), "1", dir.file("x.png")}),
                          "pdf-page: could not open " + fixture(name) + " as a PDF");
  }
  expectFailureDocument(runHelper({"pdf-page", dir.path(), "1", dir.file("x.png")}),
                        "pdf-page: could not open " + dir.path() + " as a PDF");
  expectFailureDocument(runHelper({"pdf-page", fixture("three-pages.pdf"), "4", dir.file("x.png")}),
                        "pdf-page: this PDF has 3 pages, asked for 4");
  expectFailureDocument(
      runHelper({"pdf-page", fixture("flat-cropbox.pdf"), "1", dir.file("x.png"), "0"}),
      "pdf-page: page 1 has an empty crop box");
  expectFailureDocument(
      runHelper({"pdf-page", fixture("three-pages.pdf"), "1", "/no/such/dir/x.png"}),
      "pdf-page: could not write to /no/such/dir/x.png");
}

TEST(PdfPageCli, AHugePageCountEndsInAFailureOrAResult) {
  ScratchDir dir;
  for (const char* page : {"1", "2", "2147483647"}) {
    auto run = pdf_test::runBounded(
        {"pdf-page", fixture("huge-count.pdf"), page, dir.file("h.png"), "100", "100"});
    EXPECT_FALSE(run.timedOut);
    EXPECT_TRUE(run.status == 0 || run.status == 1) << run.status;
    auto lines = jsonLines(run.out);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0]["type"], run.status == 0 ? "pdf-page" : "error");
  }
}

}  // namespace
