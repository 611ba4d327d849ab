// pdf-page's rules over a fake PDF library.
#include "documents/pdf_page.h"

#include <gtest/gtest.h>

#include "pdf_fake_document.h"
#include "stdout_capture.h"

namespace tallowbrook::PdfPage {
namespace {

using Pdf::FakeLibrary;
using Pdf::FakePage;

class PdfPageTest : public ::testing::Test {
 protected:
  PdfPageTest() { library.files["doc.pdf"].pages = {FakePage{}, FakePage{}, FakePage{}}; }

  Json runWith(const std::vector<std::string>& args) { return render(parse(args), library); }
  // The message of the Error that parsing or rendering throws.
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

TEST_F(PdfPageTest, FewerThanThreeWordsIsTheUsage) {
  const std::string usage = "usage: pdf-page <pdf-path> <page-number> <out.png> [width] [height]";
  EXPECT_EQ(failureOf({}), usage);
  EXPECT_EQ(failureOf({"doc.pdf", "1"}), usage);
  EXPECT_TRUE(library.log.opened.empty());
}

TEST_F(PdfPageTest, ABadPageNumberIsReportedAsTypedBeforeTheFileIsOpened) {
  for (const char* word : {"0", "-3", "two", "", "1.5", "+0"}) {
    EXPECT_EQ(failureOf({"missing.pdf", word, "out.png"}),
              std::string("pdf-page: page number must be 1 or more, got ") + word);
  }
  EXPECT_TRUE(library.log.opened.empty());
}

TEST_F(PdfPageTest, DefaultSizeIs1404By1872) {
  Json summary = runWith({"doc.pdf", "1", "out.png"});
  EXPECT_EQ(
      summary.dump(),
      R"({"type":"pdf-page","page":1,"pages":3,"width":1404,"height":1872,"path":"out.png"})");
  EXPECT_EQ(library.log.drawnWidth, 1404);
  EXPECT_EQ(library.log.drawnHeight, 1872);
  EXPECT_EQ(library.log.writtenPath, "out.png");
}

TEST_F(PdfPageTest, WidthAloneKeepsTheDefaultHeight) {
  Json summary = runWith({"doc.pdf", "2", "out.png", "800"});
  EXPECT_EQ(summary["width"], 800);
  EXPECT_EQ(summary["height"], 1872);
  EXPECT_EQ(summary["page"], 2);
  EXPECT_EQ(library.log.loadedPage, 2);
}

TEST_F(PdfPageTest, AnUnparsableSizeFallsBackSilently) {
  Json summary = runWith({"doc.pdf", "+3", "out.png", "wide", "600", "ignored"});
  EXPECT_EQ(summary["width"], 1404);
  EXPECT_EQ(summary["height"], 600);
  EXPECT_EQ(summary["page"], 3);
  EXPECT_EQ(library.log.drawnHeight, 600);
}

TEST_F(PdfPageTest, SizesFrom1To8000AreDrawable) {
  EXPECT_EQ(failureOf({"doc.pdf", "1", "out.png", "8000", "8000"}), "(no failure)");
  EXPECT_EQ(failureOf({"doc.pdf", "1", "out.png", "1", "1"}), "(no failure)");
  EXPECT_EQ(failureOf({"doc.pdf", "1", "out.png", "8001"}),
            "pdf-page: 8001x1872 is not a drawable size");
  EXPECT_EQ(failureOf({"doc.pdf", "1", "out.png", "0"}), "pdf-page: 0x1872 is not a drawable size");
  EXPECT_EQ(failureOf({"doc.pdf", "1", "out.png", "+20", "-5"}),
            "pdf-page: 20x-5 is not a drawable size");
}

TEST_F(PdfPageTest, TheSizeIsCheckedOnlyAfterThePageAndItsCropBox) {
  EXPECT_EQ(failureOf({"missing.pdf", "1", "out.png", "0"}),
            "pdf-page: could not open missing.pdf as a PDF");
  EXPECT_EQ(failureOf({"doc.pdf", "4", "out.png", "0"}),
            "pdf-page: this PDF has 3 pages, asked for 4");
  library.files["doc.pdf"].pages[0].crop = {0, 0, 0, 792};
  EXPECT_EQ(failureOf({"doc.pdf", "1", "out.png", "0"}), "pdf-page: page 1 has an empty crop box");
}

TEST_F(PdfPageTest, DocumentAndPageFailures) {
  EXPECT_EQ(failureOf({"/tmp/a b/none.pdf", "1", "out.png"}),
            "pdf-page: could not open /tmp/a b/none.pdf as a PDF");
  EXPECT_EQ(failureOf({"doc.pdf", "+04", "out.png"}),
            "pdf-page: this PDF has 3 pages, asked for 4");
  library.files["doc.pdf"].pages[1].loads = false;
  EXPECT_EQ(failureOf({"doc.pdf", "2", "out.png"}), "pdf-page: page 2 would not load");
  library.files["doc.pdf"].pages[2].crop = {10, 10, 200, -1};
  EXPECT_EQ(failureOf({"doc.pdf", "3", "out.png"}), "pdf-page: page 3 has an empty crop box");
  library.files["empty.pdf"] = {};
  EXPECT_EQ(failureOf({"empty.pdf", "1", "out.png"}),
            "pdf-page: this PDF has 0 pages, asked for 1");
}

TEST_F(PdfPageTest, TheCropBoxIsWhatIsDrawn) {
  library.files["doc.pdf"].pages[0].crop = {36, 72, 540, 300};
  ASSERT_EQ(failureOf({"doc.pdf", "1", "out.png", "900", "500"}), "(no failure)");
  EXPECT_EQ(library.log.drawnCrop.x, 36);
  EXPECT_EQ(library.log.drawnCrop.y, 72);
  EXPECT_EQ(library.log.drawnCrop.width, 540);
  EXPECT_EQ(library.log.drawnCrop.height, 300);
}

TEST_F(PdfPageTest, DrawingAndWritingFailures) {
  auto& file = library.files["doc.pdf"];
  using Kind = Pdf::DocumentError::Kind;
  file.drawFails = Kind::noContext;
  EXPECT_EQ(failureOf({"doc.pdf", "1", "out.png", "640", "480"}),
            "pdf-page: could not allocate a 640x480 context");
  file.drawFails = Kind::noImage;
  EXPECT_EQ(failureOf({"doc.pdf", "1", "out.png"}),
            "pdf-page: the page drew but produced no image");
  file.drawFails.reset();
  file.writeFails = Kind::cannotCreate;
  EXPECT_EQ(failureOf({"doc.pdf", "1", "/no/dir/out.png"}),
            "pdf-page: could not write to /no/dir/out.png");
  file.writeFails = Kind::writeFailed;
  EXPECT_EQ(failureOf({"doc.pdf", "1", "/full/out.png"}), "pdf-page: writing /full/out.png failed");
}

TEST_F(PdfPageTest, RunPrintsTheSummaryOnOneFlushedLine) {
  StdoutCapture capture;
  run({"doc.pdf", "1", "/tmp/out.png"}, library);
  EXPECT_EQ(capture.text(),
            "{\"type\":\"pdf-page\",\"page\":1,\"pages\":3,\"width\":1404,\"height\":1872,"
            "\"path\":\"\\/tmp\\/out.png\"}\n");
}

TEST_F(PdfPageTest, RunFailsWithStatusOne) {
  EXPECT_EXIT(run({"doc.pdf", "9", "out.png"}, library), ::testing::ExitedWithCode(1), "");
}

}  // namespace
}  // namespace tallowbrook::PdfPage
