// The vision-ocr command over a fake recogniser.
#include "ocr/vision_ocr.h"

#include <cmath>

#include <gtest/gtest.h>

#include "base/error.h"
#include "base/out.h"
#include "stdout_capture.h"

namespace tallowbrook::VisionOCR {
namespace {

class FakeRecognizer : public TextRecognizer {
 public:
  bool opens = true;
  bool succeeds = true;
  std::string failure = "the recogniser ran out of memory";
  std::vector<DocumentObservation> result;
  std::string openedPath;
  Settings seen;

  bool open(const std::string& path, ImageSize* size) override {
    openedPath = path;
    *size = {800, 600};
    return opens;
  }
  std::vector<DocumentObservation> recognize(const Settings& settings) override {
    seen = settings;
    if (!succeeds) throw Error(failure);
    return result;
  }
};

LineObservation observed(const std::string& text) {
  LineObservation line;
  line.corners = {{{0.1, 0.9}, {0.5, 0.9}, {0.5, 0.8}, {0.1, 0.8}}};
  line.topCandidate = TextCandidate{text, 0.75f};
  line.confidence = 0.5f;
  return line;
}

TEST(RecognizeAndReport, PrintsOneReportLine) {
  FakeRecognizer fake;
  fake.result = {DocumentObservation{{Paragraph{{observed("first"), observed("second")}}}, {}},
                 DocumentObservation{{}, {observed("loose")}}};
  Settings settings;
  settings.languages = {"de-DE"};
  StdoutCapture capture;
  recognizeAndReport("/scans/page 1.png", settings, fake);
  std::string out = capture.text();
  ASSERT_EQ(out.back(), '\n');
  EXPECT_EQ(out.find('\n'), out.size() - 1);
  Json r = Json::parse(out);
  EXPECT_EQ(fake.openedPath, "/scans/page 1.png");
  EXPECT_EQ(fake.seen.languages, std::vector<std::string>{"de-DE"});
  EXPECT_EQ(r["type"], "vision-ocr");
  EXPECT_EQ(r["settings"]["languages"], "de-DE");
  EXPECT_EQ(r["width"], 800);
  EXPECT_EQ(r["height"], 600);
  EXPECT_GE(r["elapsedMs"].get<double>(), 0);
  EXPECT_EQ(r["lineCount"], 3);
  EXPECT_EQ(r["lines"][2]["text"], "loose");
  EXPECT_FALSE(r["lines"][2].contains("block"));
  EXPECT_EQ(r["lines"][1]["block"], 0);
}

TEST(RecognizeAndReport, NoTextGivesAnEmptyReport) {
  FakeRecognizer fake;
  StdoutCapture capture;
  recognizeAndReport("blank.png", Settings{}, fake);
  Json r = Json::parse(capture.text());
  EXPECT_EQ(r["lineCount"], 0);
  EXPECT_EQ(r["lines"], Json::array());
}

TEST(RecognizeAndReport, UnserialisableReportPrintsNothingAndEndsNormally) {
  FakeRecognizer fake;
  LineObservation bad = observed("nan");
  bad.confidence = std::nanf("");
  fake.result = {DocumentObservation{{Paragraph{{bad}}}, {}}};
  StdoutCapture capture;
  recognizeAndReport("x.png", Settings{}, fake);
  EXPECT_EQ(capture.text(), "");
}

TEST(RecognizeAndReportDeathTest, UnreadableImageFails) {
  FakeRecognizer fake;
  fake.opens = false;
  StdoutCapture capture;
  EXPECT_EXIT(recognizeAndReport("/tmp/missing.png", Settings{}, fake), testing::ExitedWithCode(1),
              "");
  EXPECT_EQ(capture.text(),
            R"({"type":"error","message":"could not read an image at \/tmp\/missing.png"})"
            "\n");
}

TEST(RecognizeAndReportDeathTest, RecogniserFailureIsReported) {
  FakeRecognizer fake;
  fake.succeeds = false;
  StdoutCapture capture;
  EXPECT_EXIT(recognizeAndReport("a.png", Settings{}, fake), testing::ExitedWithCode(1), "");
  EXPECT_EQ(Json::parse(capture.text())["message"],
            "Vision failed: the recogniser ran out of memory");
}

}  // namespace
}  // namespace tallowbrook::VisionOCR
