// pdf-text's rules over a fake PDF library.
#include "documents/pdf_text.h"

#include <gtest/gtest.h>

#include "pdf_fake_document.h"
#include "stdout_capture.h"

namespace tallowbrook::PdfText {
namespace {

using Pdf::FakeLibrary;
using Pdf::FakePage;
using Pdf::Rect;

class PdfTextTest : public ::testing::Test {
 protected:
  PdfTextTest() { library.files["doc.pdf"].pages = {FakePage{}, FakePage{}, FakePage{}}; }

  Json runWith(const std::vector<std::string>& args) { return extract(parse(args), library); }
  // The message of the Error that parsing or extracting throws.
  std::string failureOf(const std::vector<std::string>& args) {
    try {
      runWith(args);
    } catch (const Error& error) {
      return error.message();
    }
    return "(no failure)";
  }

  FakeLibrary library;
};

TEST_F(PdfTextTest, FewerThanTwoWordsIsTheUsage) {
  EXPECT_EQ(failureOf({}), "usage: pdf-text <pdf-path> <page-number>");
  EXPECT_EQ(failureOf({"doc.pdf"}), "usage: pdf-text <pdf-path> <page-number>");
}

TEST_F(PdfTextTest, ABadPageNumberIsReportedAsTyped) {
  for (const char* word : {"0", "-3", "two", " 1"}) {
    EXPECT_EQ(failureOf({"missing.pdf", word}),
              std::string("pdf-text: page number must be 1 or more, got ") + word);
  }
  EXPECT_TRUE(library.log.opened.empty());
}

TEST_F(PdfTextTest, DocumentAndPageFailures) {
  EXPECT_EQ(failureOf({"nothing.pdf", "1"}), "pdf-text: could not open nothing.pdf as a PDF");
  EXPECT_EQ(failureOf({"doc.pdf", "4"}), "pdf-text: this PDF has 3 pages, asked for 4");
  library.files["doc.pdf"].pages[0].loads = false;
  EXPECT_EQ(failureOf({"doc.pdf", "1"}), "pdf-text: page 1 would not load");
  library.files["doc.pdf"].pages[1].crop = {0, 0, 612, 0};
  EXPECT_EQ(failureOf({"doc.pdf", "2"}), "pdf-text: page 2 has an empty crop box");
}

TEST_F(PdfTextTest, APageWithoutTextHasNoLines) {
  EXPECT_EQ(runWith({"doc.pdf", "3", "extra"}).dump(),
            R"({"type":"pdf-text","page":3,"pages":3,"lines":[]})");
}

TEST_F(PdfTextTest, LinesAreNormalisedToTheCropBox) {
  FakePage& page = library.files["doc.pdf"].pages[0];
  page.crop = Rect{100, 200, 400, 500};
  page.text.text = " Hi\nyo";
  page.text.boxes = {Rect{}, Rect{100, 680, 10, 20}, Rect{110, 680, 10, 20},
                     Rect{}, Rect{150, 200, 20, 10}, Rect{170, 200, 20, 10}};
  Json result = runWith({"doc.pdf", "1"});
  const Json& lines = result["lines"];
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0]["text"], "Hi");
  EXPECT_DOUBLE_EQ(lines[0]["x"].get<double>(), 0);
  EXPECT_DOUBLE_EQ(lines[0]["y"].get<double>(), 0);
  EXPECT_DOUBLE_EQ(lines[0]["w"].get<double>(), 0.05);
  EXPECT_DOUBLE_EQ(lines[0]["h"].get<double>(), 0.04);
  EXPECT_EQ(lines[1]["text"], "yo");
  EXPECT_DOUBLE_EQ(lines[1]["x"].get<double>(), 0.125);
  EXPECT_DOUBLE_EQ(lines[1]["y"].get<double>() + lines[1]["h"].get<double>(), 1);
}

TEST_F(PdfTextTest, RunPrintsOneFlushedLine) {
  StdoutCapture capture;
  run({"doc.pdf", "2"}, library);
  EXPECT_EQ(capture.text(), "{\"type\":\"pdf-text\",\"page\":2,\"pages\":3,\"lines\":[]}\n");
}

TEST_F(PdfTextTest, RunFailsWithStatusOne) {
  EXPECT_EXIT(run({"doc.pdf", "0"}, library), ::testing::ExitedWithCode(1), "");
}

}  // namespace
}  // namespace tallowbrook::PdfText
