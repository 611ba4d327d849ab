// The espeak-ng engine's pure parts: settings mapping, language codes and word ranges.
#include <limits>

#include <gtest/gtest.h>

#include "speech/espeak/espeak_settings.h"
#include "speech/espeak/word_ranges.h"

namespace tallowbrook::Speak {
namespace {

TEST(EspeakSettings, RateMapsOntoWordsPerMinute) {
  EXPECT_EQ(wordsPerMinute(0.0f), 80);
  EXPECT_EQ(wordsPerMinute(0.25f), 128);
  EXPECT_EQ(wordsPerMinute(0.5f), 175);
  EXPECT_EQ(wordsPerMinute(0.75f), 313);
  EXPECT_EQ(wordsPerMinute(1.0f), 450);
  EXPECT_EQ(wordsPerMinute(-3.0f), 80);
  EXPECT_EQ(wordsPerMinute(7.0f), 450);
  EXPECT_EQ(wordsPerMinute(std::numeric_limits<float>::quiet_NaN()), 175);
}

TEST(EspeakSettings, RateIsMonotonic) {
  int previous = wordsPerMinute(0.0f);
  for (int i = 1; i <= 1000; ++i) {
    int wpm = wordsPerMinute(float(i) / 1000.0f);
    EXPECT_GE(wpm, previous) << i;
    previous = wpm;
  }
}

TEST(EspeakSettings, PitchMultiplierScalesTheBasePitch) {
  EXPECT_EQ(espeakPitch(1.0f), 50);
  EXPECT_EQ(espeakPitch(0.5f), 25);
  EXPECT_EQ(espeakPitch(2.0f), 100);
  EXPECT_EQ(espeakPitch(1.5f), 75);
  EXPECT_EQ(espeakPitch(0.1f), 25);
  EXPECT_EQ(espeakPitch(9.0f), 100);
  EXPECT_EQ(espeakPitch(std::numeric_limits<float>::quiet_NaN()), 50);
}

TEST(EspeakSettings, LanguagesGetBcp47Case) {
  EXPECT_EQ(bcp47Language("af"), "af");
  EXPECT_EQ(bcp47Language("en-gb"), "en-GB");
  EXPECT_EQ(bcp47Language("en-us-nyc"), "en-US-nyc");
  EXPECT_EQ(bcp47Language("en-029"), "en-029");
  EXPECT_EQ(bcp47Language("cmn-latn-pinyin"), "cmn-Latn-pinyin");
  EXPECT_EQ(bcp47Language("en-gb-x-rp"), "en-GB-x-rp");
  EXPECT_EQ(bcp47Language("en-gb-x-gbclan"), "en-GB-x-gbclan");
  EXPECT_EQ(bcp47Language("chr-US-Qaaa-x-west"), "chr-US-Qaaa-x-west");
  EXPECT_EQ(bcp47Language("EN"), "en");
  EXPECT_EQ(bcp47Language(""), "");
}

TEST(WordRanges, CodePointPositionsBecomeUtf16Ranges) {
  // H é l l o _ 日 本 _ 😀 _ w o r l d
  WordRanges words("Héllo 日本 😀 world.");
  auto r = words.map(1, 5);
  EXPECT_EQ(r.loc, 0);
  EXPECT_EQ(r.len, 5);
  r = words.map(7, 2);
  EXPECT_EQ(r.loc, 6);
  EXPECT_EQ(r.len, 2);
  r = words.map(10, 1);
  EXPECT_EQ(r.loc, 9);
  EXPECT_EQ(r.len, 2);
  r = words.map(12, 5);
  EXPECT_EQ(r.loc, 12);
  EXPECT_EQ(r.len, 5);
}

TEST(WordRanges, AWordAnnouncedOnTheBlankAfterATokenRepeatsThatToken) {
  WordRanges words("a 😂 b");
  EXPECT_EQ(words.map(3, 1).loc, 2);
  auto r = words.map(4, 1);  // "face", announced on the blank
  EXPECT_EQ(r.loc, 2);
  EXPECT_EQ(r.len, 2);
  r = words.map(5, 1);
  EXPECT_EQ(r.loc, 5);
  EXPECT_EQ(r.len, 1);
}

TEST(WordRanges, AWordAnnouncedOnPunctuationRepeatsThePreviousWord) {
  WordRanges words("a 😀! z");
  EXPECT_EQ(words.map(3, 1).loc, 2);
  auto r = words.map(4, 1);  // "face", announced on the exclamation mark
  EXPECT_EQ(r.loc, 2);
  EXPECT_EQ(r.len, 2);
  WordRanges quoted("\"Hi\" z");
  r = quoted.map(1, 1);  // a first word on punctuation is kept
  EXPECT_EQ(r.loc, 0);
  EXPECT_EQ(r.len, 1);
}

TEST(WordRanges, AWordRunningPastItsTokenRepeatsThePreviousWord) {
  WordRanges words("x 1234567 y");
  auto first = words.map(3, 7);
  EXPECT_EQ(first.loc, 2);
  EXPECT_EQ(first.len, 7);
  auto later = words.map(4, 7);  // "thousand", shifted by one
  EXPECT_EQ(later.loc, 2);
  EXPECT_EQ(later.len, 7);
}

TEST(WordRanges, TheFirstWordIsClippedToItsToken) {
  WordRanges words("ab cd");
  auto r = words.map(2, 4);
  EXPECT_EQ(r.loc, 1);
  EXPECT_EQ(r.len, 1);
  WordRanges blank(" ab");
  r = blank.map(1, 1);
  EXPECT_EQ(r.loc, 0);
  EXPECT_EQ(r.len, 0);
}

TEST(WordRanges, PositionsPastTheTextStayInside) {
  WordRanges words("ab");
  auto r = words.map(1, 2);
  r = words.map(9, 3);
  EXPECT_EQ(r.loc, 0);
  EXPECT_EQ(r.len, 2);
}

}  // namespace
}  // namespace tallowbrook::Speak
