#include <cmath>

#include <gtest/gtest.h>

#include "ocr/settings.h"

namespace tallowbrook::VisionOCR {
namespace {

Settings parse(std::vector<std::string> words) {
  words.insert(words.begin(), {"tallowbrook-helper", "vision-ocr", "page.png"});
  return Settings::fromArguments(words);
}

TEST(OcrSettings, DefaultsWhenNoOptionIsGiven) {
  Settings s = parse({});
  EXPECT_FALSE(s.useLanguageCorrection);
  EXPECT_FALSE(s.automaticallyDetectLanguage);
  EXPECT_EQ(s.languages, std::vector<std::string>{"en-US"});
  EXPECT_EQ(s.minimumTextHeightFraction, 0.0f);
  EXPECT_EQ(s.echo(), (std::map<std::string, std::string>{{"useLanguageCorrection", "false"},
                                                          {"automaticallyDetectLanguage", "false"},
                                                          {"languages", "en-US"},
                                                          {"minimumTextHeightFraction", "0.0"}}));
}

TEST(OcrSettings, LanguagesDropEmptyPiecesAndEchoJoined) {
  Settings s = parse({"--languages", "en-US,,de-DE"});
  EXPECT_EQ(s.languages, (std::vector<std::string>{"en-US", "de-DE"}));
  EXPECT_EQ(s.echo().at("languages"), "en-US,de-DE");
}

TEST(OcrSettings, LanguagesKeepPiecesAsGiven) {
  EXPECT_EQ(parse({"--languages", " fr ,x"}).languages, (std::vector<std::string>{" fr ", "x"}));
  EXPECT_TRUE(parse({"--languages", ",,,"}).languages.empty());
  EXPECT_EQ(parse({"--languages", ",,,"}).echo().at("languages"), "");
}

TEST(OcrSettings, BooleansAreLowerCasedAndMatchedExactly) {
  EXPECT_TRUE(parse({"--language-correction", "YES"}).useLanguageCorrection);
  EXPECT_FALSE(parse({"--language-correction", "enabled"}).useLanguageCorrection);
  for (const char* on : {"on", "ON", "true", "True", "yes", "1"}) {
    EXPECT_TRUE(parse({"--auto-language", on}).automaticallyDetectLanguage) << on;
  }
  for (const char* off : {"off", "0", "y", " yes", "2"}) {
    EXPECT_FALSE(parse({"--auto-language", off}).automaticallyDetectLanguage) << off;
  }
  EXPECT_EQ(parse({"--language-correction", "yes"}).echo().at("useLanguageCorrection"), "true");
}

TEST(OcrSettings, UnparsableMinimumHeightIsZero) {
  Settings s = parse({"--min-text-height", "abc"});
  EXPECT_EQ(s.minimumTextHeightFraction, 0.0f);
  EXPECT_EQ(s.echo().at("minimumTextHeightFraction"), "0.0");
  EXPECT_EQ(parse({"--min-text-height", ""}).minimumTextHeightFraction, 0.0f);
  EXPECT_EQ(parse({"--min-text-height", " 0.5"}).minimumTextHeightFraction, 0.0f);
  EXPECT_EQ(parse({"--min-text-height", "0.5x"}).minimumTextHeightFraction, 0.0f);
}

TEST(OcrSettings, MinimumHeightEchoesItsShortestForm) {
  EXPECT_EQ(parse({"--min-text-height", "0.02"}).echo().at("minimumTextHeightFraction"), "0.02");
  EXPECT_EQ(parse({"--min-text-height", "1"}).echo().at("minimumTextHeightFraction"), "1.0");
}

TEST(OcrSettings, TrailingOptionWithoutValueIsAbsent) {
  Settings s = parse({"--languages"});
  EXPECT_EQ(s.languages, std::vector<std::string>{"en-US"});
  EXPECT_FALSE(parse({"--language-correction"}).useLanguageCorrection);
}

TEST(OcrSettings, FirstOccurrenceWinsAndOtherWordsAreIgnored) {
  Settings s = parse({"--verbose", "--languages", "fr", "--languages", "de", "extra"});
  EXPECT_EQ(s.languages, std::vector<std::string>{"fr"});
}

TEST(OcrSettings, OptionNameAsValue) {
  // The value is simply the next word, even if it looks like an option.
  Settings s = parse({"--languages", "--auto-language", "on"});
  EXPECT_EQ(s.languages, std::vector<std::string>{"--auto-language"});
  EXPECT_TRUE(s.automaticallyDetectLanguage);
}

TEST(ShortestFloatText, UsesThePlatformNotation) {
  EXPECT_EQ(shortestFloatText(0.0f), "0.0");
  EXPECT_EQ(shortestFloatText(-0.0f), "-0.0");
  EXPECT_EQ(shortestFloatText(0.02f), "0.02");
  EXPECT_EQ(shortestFloatText(0.1f), "0.1");
  EXPECT_EQ(shortestFloatText(1.5f), "1.5");
  EXPECT_EQ(shortestFloatText(100.0f), "100.0");
  EXPECT_EQ(shortestFloatText(0.0001f), "0.0001");
  EXPECT_EQ(shortestFloatText(0.00001f), "1e-05");
  EXPECT_EQ(shortestFloatText(1.25e-7f), "1.25e-07");
  EXPECT_EQ(shortestFloatText(16777216.0f), "16777216.0");
  EXPECT_EQ(shortestFloatText(16777218.0f), "1.6777218e+07");
  EXPECT_EQ(shortestFloatText(-2.5f), "-2.5");
  EXPECT_EQ(shortestFloatText(1.0f / 0.0f), "inf");
  EXPECT_EQ(shortestFloatText(-1.0f / 0.0f), "-inf");
  EXPECT_EQ(shortestFloatText(std::nanf("")), "nan");
}

}  // namespace
}  // namespace tallowbrook::VisionOCR
