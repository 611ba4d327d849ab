// Option scanning of speak render and preview.
#include "speech/speak_options.h"

#include <cmath>

#include <gtest/gtest.h>

namespace tallowbrook::Speak {
namespace {

TEST(SpeakOptions, DefaultsWhenNothingIsGiven) {
  Options o = scanOptions({});
  EXPECT_EQ(o.out, std::nullopt);
  EXPECT_EQ(o.voice, std::nullopt);
  EXPECT_EQ(o.rate, 0.5f);
  EXPECT_EQ(o.pitch, 1.0f);
}

TEST(SpeakOptions, EachOptionTakesTheNextWord) {
  Options o =
      scanOptions({"--out", "a.wav", "--voice", "gmw/de", "--rate", "0.7", "--pitch", "1.5"});
  EXPECT_EQ(o.out, "a.wav");
  EXPECT_EQ(o.voice, "gmw/de");
  EXPECT_EQ(o.rate, 0.7f);
  EXPECT_EQ(o.pitch, 1.5f);
}

TEST(SpeakOptions, ALaterOptionOverridesAnEarlierOne) {
  Options o = scanOptions({"--out", "a.wav", "--rate", "0.1", "--out", "b.wav", "--rate", "0.9"});
  EXPECT_EQ(o.out, "b.wav");
  EXPECT_EQ(o.rate, 0.9f);
}

TEST(SpeakOptions, ATrailingVoiceOrOutDropsItsEarlierValue) {
  EXPECT_EQ(scanOptions({"--voice", "gmw/de", "--voice"}).voice, std::nullopt);
  EXPECT_EQ(scanOptions({"--out", "a.wav", "--out"}).out, std::nullopt);
}

TEST(SpeakOptions, AnUnparsableOrMissingNumberKeepsThePreviousValue) {
  EXPECT_EQ(scanOptions({"--rate", "fast"}).rate, 0.5f);
  EXPECT_EQ(scanOptions({"--rate", "0.8", "--rate", "fast"}).rate, 0.8f);
  EXPECT_EQ(scanOptions({"--rate", "0.8", "--rate"}).rate, 0.8f);
  EXPECT_EQ(scanOptions({"--pitch", "1.2", "--pitch", "1.2x"}).pitch, 1.2f);
}

TEST(SpeakOptions, AValueWordIsConsumedEvenWhenItLooksLikeAnOption) {
  Options o = scanOptions({"--voice", "--out", "a.wav"});
  EXPECT_EQ(o.voice, "--out");
  EXPECT_EQ(o.out, std::nullopt);
  EXPECT_EQ(scanOptions({"--rate", "--out", "a.wav"}).out, std::nullopt);
}

TEST(SpeakOptions, OtherWordsAreIgnored) {
  Options o = scanOptions({"hello", "--Out", "x", "--out", "a.wav", "-v"});
  EXPECT_EQ(o.out, "a.wav");
  EXPECT_EQ(o.voice, std::nullopt);
}

TEST(SpeakOptions, PreviewKnowsOnlyVoiceAndRate) {
  Options o =
      scanOptions({"--pitch", "--voice", "gmw/de", "--out", "--rate", "0.2"}, OptionSet::preview);
  EXPECT_EQ(o.voice, "gmw/de");
  EXPECT_EQ(o.rate, 0.2f);
  EXPECT_EQ(o.pitch, 1.0f);
  EXPECT_EQ(o.out, std::nullopt);
  Options r = scanOptions({"--pitch", "--voice", "gmw/de"}, OptionSet::render);
  EXPECT_EQ(r.voice, std::nullopt);
}

TEST(SpeakOptions, FloatsParseAsWholeWords) {
  EXPECT_EQ(parseFloat32("0.5"), 0.5f);
  EXPECT_EQ(parseFloat32("-2"), -2.0f);
  EXPECT_EQ(parseFloat32("1e-1"), 0.1f);
  EXPECT_EQ(parseFloat32(".25"), 0.25f);
  EXPECT_TRUE(std::isinf(*parseFloat32("inf")));
  EXPECT_TRUE(std::isnan(*parseFloat32("nan")));
  EXPECT_EQ(parseFloat32(""), std::nullopt);
  EXPECT_EQ(parseFloat32(" 1"), std::nullopt);
  EXPECT_EQ(parseFloat32("1 "), std::nullopt);
  EXPECT_EQ(parseFloat32("1.5x"), std::nullopt);
  EXPECT_EQ(parseFloat32("fast"), std::nullopt);
  EXPECT_EQ(parseFloat32(std::string("1\0", 2)), std::nullopt);
}

}  // namespace
}  // namespace tallowbrook::Speak
