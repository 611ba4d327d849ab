#include <cmath>

#include <gtest/gtest.h>

#include "ocr/ocr_line.h"
#include "ocr/report.h"

namespace tallowbrook::VisionOCR {
namespace {

// A line whose corners span x 0.1-0.9 and bottom-left y from `bottom` to `top`.
LineObservation observed(const std::string& text, double top, double bottom,
                         std::optional<float> candidate = 0.9f) {
  LineObservation line;
  line.corners = {{{0.1, top}, {0.9, top}, {0.9, bottom}, {0.1, bottom}}};
  if (candidate) line.topCandidate = TextCandidate{text, *candidate};
  line.transcript = "transcript of " + text;
  line.confidence = 0.5f;
  return line;
}

TEST(CollectLines, IndexAndBlockRunAcrossParagraphsAndObservations) {
  DocumentObservation first;
  first.paragraphs = {Paragraph{{observed("a", 0.9, 0.85), observed("b", 0.8, 0.75)}},
                      Paragraph{{observed("c", 0.7, 0.65)}}};
  DocumentObservation second;
  second.paragraphs = {Paragraph{{observed("d", 0.5, 0.45)}},
                       Paragraph{{observed("e", 0.4, 0.35), observed("f", 0.3, 0.25)}}};
  auto lines = collectLines({first, second});
  ASSERT_EQ(lines.size(), 6u);
  std::vector<std::pair<std::string, int>> got;
  for (size_t i = 0; i < lines.size(); ++i) {
    EXPECT_EQ(lines[i].index, int(i));
    ASSERT_TRUE(lines[i].block);
    got.emplace_back(lines[i].text, *lines[i].block);
  }
  EXPECT_EQ(got, (std::vector<std::pair<std::string, int>>{
                     {"a", 0}, {"b", 0}, {"c", 1}, {"d", 2}, {"e", 3}, {"f", 3}}));
}

TEST(CollectLines, EmptyParagraphStillTakesANumber) {
  DocumentObservation doc;
  doc.paragraphs = {Paragraph{{observed("a", 0.9, 0.8)}}, Paragraph{},
                    Paragraph{{observed("b", 0.5, 0.4)}}};
  auto lines = collectLines({doc});
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[1].block, 2);
}

TEST(CollectLines, ObservationWithoutParagraphsGivesLinesWithoutBlock) {
  DocumentObservation grouped;
  grouped.paragraphs = {Paragraph{{observed("a", 0.9, 0.8)}}};
  DocumentObservation loose;
  loose.lines = {observed("b", 0.6, 0.5), observed("c", 0.4, 0.3)};
  DocumentObservation after;
  after.paragraphs = {Paragraph{{observed("d", 0.2, 0.1)}}};
  auto lines = collectLines({grouped, loose, after});
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0].block, 0);
  EXPECT_FALSE(lines[1].block);
  EXPECT_FALSE(lines[2].block);
  EXPECT_EQ(lines[2].index, 2);
  EXPECT_EQ(lines[3].block, 1);  // the counter did not move for the loose lines
  EXPECT_FALSE(lines[1].json().contains("block"));
}

TEST(CollectLines, NothingFoundGivesNoLines) {
  EXPECT_TRUE(collectLines({}).empty());
}

TEST(Line, WithoutCandidateUsesTheTranscriptAndHasNoConfidence) {
  OCRLine line = VisionOCR::line(observed("x", 0.9, 0.8, std::nullopt), 3, 1);
  EXPECT_EQ(line.text, "transcript of x");
  EXPECT_FALSE(line.confidence);
  EXPECT_EQ(line.obsConfidence, 0.5f);
  Json json = line.json();
  EXPECT_FALSE(json.contains("confidence"));
  EXPECT_EQ(json["obsConfidence"], 0.5);
  EXPECT_EQ(json["index"], 3);
  EXPECT_EQ(json["ord"], 3);
  EXPECT_EQ(json["block"], 1);
}

TEST(Line, JsonHasEveryKeyWhenSet) {
  OCRLine line = VisionOCR::line(observed("hello", 0.95, 0.9), 0, 0);
  EXPECT_EQ(serializeJson(line.json()),
            R"({"index":0,"ord":0,"text":"hello","bbox":{"x":0.1,"y":0.050000000000000044,)"
            R"("w":0.8,"h":0.04999999999999993},"confidence":0.9,"obsConfidence":0.5,"block":0})");
}

TEST(Line, BoxesAreClippedToTheUnitSquare) {
  LineObservation off;
  off.corners = {{{-0.2, 1.3}, {1.4, 1.3}, {1.4, 0.9}, {-0.2, 0.9}}};
  off.topCandidate = TextCandidate{"edge", 1};
  for (const auto& observation : {off, observed("a", 0.5, 0.4)}) {
    BBox b = VisionOCR::line(observation, 0, std::nullopt).bbox;
    EXPECT_GE(b.x, 0);
    EXPECT_GE(b.y, 0);
    EXPECT_GE(b.w, 0);
    EXPECT_GE(b.h, 0);
    EXPECT_LE(b.x + b.w, 1);
    EXPECT_LE(b.y + b.h, 1);
  }
  BBox b = VisionOCR::line(off, 0, std::nullopt).bbox;
  EXPECT_EQ(b.x, 0);
  EXPECT_EQ(b.y, 0);
  EXPECT_EQ(b.w, 1);
  EXPECT_NEAR(b.h, 0.1, 1e-9);
}

TEST(Line, RotatedCornersGiveTheirHull) {
  LineObservation turned;
  turned.corners = {{{0.1, 0.7}, {0.8, 0.74}, {0.8, 0.7}, {0.1, 0.66}}};
  turned.topCandidate = TextCandidate{"t", 1};
  BBox b = VisionOCR::line(turned, 0, std::nullopt).bbox;
  EXPECT_NEAR(b.x, 0.1, 1e-9);
  EXPECT_NEAR(b.y, 0.26, 1e-9);
  EXPECT_NEAR(b.h, 0.08, 1e-9);
}

TEST(Report, HasEveryKeyInItsType) {
  Settings settings;
  auto lines = collectLines({DocumentObservation{{Paragraph{{observed("a", 0.9, 0.8)}}}, {}}});
  Json r = report(settings, {640, 480}, 12.5, lines);
  EXPECT_EQ(r["type"], "vision-ocr");
  EXPECT_EQ(r["engine"], "documents");
  EXPECT_EQ(r["settings"], (Json{{"automaticallyDetectLanguage", "false"},
                                 {"languages", "en-US"},
                                 {"minimumTextHeightFraction", "0.0"},
                                 {"useLanguageCorrection", "false"}}));
  EXPECT_EQ(r["width"], 640);
  EXPECT_EQ(r["height"], 480);
  EXPECT_EQ(r["elapsedMs"], 12.5);
  EXPECT_EQ(r["lineCount"], 1);
  EXPECT_EQ(r["lines"].size(), 1u);
  EXPECT_EQ(report(settings, {1, 1}, 0, {})["lines"], Json::array());
}

TEST(ShortestDouble, WritesFloatsInTheirShortestForm) {
  EXPECT_EQ(serializeJson(Json{{"c", shortestDouble(0.9f)}}), R"({"c":0.9})");
  EXPECT_EQ(serializeJson(Json{{"c", shortestDouble(0.96318734f)}}), R"({"c":0.96318734})");
  EXPECT_TRUE(std::isnan(shortestDouble(std::nanf(""))));
}

}  // namespace
}  // namespace tallowbrook::VisionOCR
