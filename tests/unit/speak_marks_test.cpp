// Speak::Marks, Speak::Playback and the text helpers of speak.
#include <thread>

#include <gtest/gtest.h>

#include "speech/speak_marks.h"
#include "speech/speak_playback.h"
#include "speech/speech_text.h"

namespace tallowbrook::Speak {
namespace {

TEST(SpeakMarks, AMarkBeforeAnyAudioIsAtZero) {
  Marks marks;
  marks.willSpeakRange(0, 5);
  auto s = marks.snapshot();
  ASSERT_EQ(s.marks.size(), 1u);
  EXPECT_EQ(s.marks[0].atMs, 0);
  EXPECT_EQ(s.marks[0].loc, 0);
  EXPECT_EQ(s.marks[0].len, 5);
  EXPECT_EQ(s.rate, 22050.0);
}

TEST(SpeakMarks, MarksCarryTheAudioPositionWhenAnnounced) {
  Marks marks;
  marks.setRate(22050);
  marks.addFrames(11025);
  marks.willSpeakRange(6, 4);
  marks.addFrames(33075);
  auto s = marks.snapshot();
  EXPECT_EQ(s.marks[0].atMs, 500);
  EXPECT_EQ(s.frames, 44100);
  EXPECT_EQ(millisecondsOf(s.frames, s.rate), 2000);
}

TEST(SpeakMarks, MillisecondsAreTruncated) {
  EXPECT_EQ(millisecondsOf(44100, 22050), 2000);
  EXPECT_EQ(millisecondsOf(22, 22050), 0);
  EXPECT_EQ(millisecondsOf(34822, 22050), 1579);
  EXPECT_EQ(millisecondsOf(100, 0), 0);
}

TEST(SpeakMarks, CountsFromAnotherThreadAreSeen) {
  Marks marks;
  std::thread writer([&] {
    for (int i = 0; i < 1000; ++i) {
      marks.addFrames(10);
      if (i % 100 == 0) marks.willSpeakRange(i, 1);
    }
  });
  writer.join();
  auto s = marks.snapshot();
  EXPECT_EQ(s.frames, 10000);
  ASSERT_EQ(s.marks.size(), 10u);
  for (size_t i = 1; i < s.marks.size(); ++i) EXPECT_GE(s.marks[i].atMs, s.marks[i - 1].atMs);
}

TEST(SpeakPlayback, FinishAndCancelBothCountAsFinished) {
  for (bool cancel : {false, true}) {
    Playback playback;
    std::thread t([&] { cancel ? playback.didCancel() : playback.didFinish(); });
    EXPECT_TRUE(playback.waitUntil(std::chrono::steady_clock::now() + std::chrono::hours(1),
                                   std::chrono::milliseconds(20)));
    t.join();
  }
}

TEST(SpeakPlayback, AFailureEndsTheWaitUnfinished) {
  Playback playback;
  std::thread t([&] { playback.didFail("Connection refused"); });
  EXPECT_FALSE(playback.waitUntil(std::chrono::steady_clock::now() + std::chrono::hours(1),
                                  std::chrono::milliseconds(20)));
  t.join();
}

TEST(SpeakPlayback, TheDeadlineEndsTheWait) {
  Playback playback;
  EXPECT_FALSE(playback.waitUntil(std::chrono::steady_clock::now() + std::chrono::milliseconds(50),
                                  std::chrono::milliseconds(20)));
}

TEST(SpeechText, OnlyWellFormedUtf8IsText) {
  EXPECT_EQ(decodeText("Grüße, 日本 😀"), "Grüße, 日本 😀");
  EXPECT_EQ(decodeText("a\xff"), "");
  EXPECT_EQ(decodeText("\xed\xa0\x80"), "");  // a surrogate
}

TEST(SpeechText, BlankMeansOnlyWhiteSpace) {
  EXPECT_TRUE(isBlank(""));
  EXPECT_TRUE(isBlank(" \t\n\r\v\f"));
  EXPECT_TRUE(isBlank("\u00a0\u2028\u2029\u3000\u0085\u2003"));
  EXPECT_FALSE(isBlank(" . "));
  EXPECT_FALSE(isBlank("\u200b"));  // zero-width space is not white space
  EXPECT_FALSE(isBlank(" 日 "));
}

TEST(SpeechText, Utf16OffsetsCountSurrogatePairsTwice) {
  Utf16Offsets offsets("aé日😀b");
  EXPECT_EQ(offsets.codePoints(), 5);
  EXPECT_EQ(offsets.at(0), 0);
  EXPECT_EQ(offsets.at(1), 1);
  EXPECT_EQ(offsets.at(2), 2);
  EXPECT_EQ(offsets.at(3), 3);
  EXPECT_EQ(offsets.at(4), 5);
  EXPECT_EQ(offsets.at(5), 6);
  EXPECT_EQ(offsets.at(99), 6);
  EXPECT_EQ(offsets.at(-1), 0);
  EXPECT_EQ(codePointsOf("aé日😀b"), U"aé日😀b");
}

}  // namespace
}  // namespace tallowbrook::Speak
