// The speak command over a scripted engine: options, failures, render output and file, preview.
#include "speech/speak.h"

#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "base/out.h"
#include "speak_fake_engine.h"
#include "stdout_capture.h"

namespace tallowbrook::Speak {
namespace {

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

uint32_t le32(const std::string& bytes, size_t at) {
  return uint32_t(uint8_t(bytes[at])) | uint32_t(uint8_t(bytes[at + 1])) << 8 |
         uint32_t(uint8_t(bytes[at + 2])) << 16 | uint32_t(uint8_t(bytes[at + 3])) << 24;
}

int16_t sampleAt(const std::string& wav, size_t index) {
  size_t at = 44 + index * 2;
  return int16_t(uint16_t(uint8_t(wav[at])) | uint16_t(uint8_t(wav[at + 1])) << 8);
}

std::vector<Json> lines(const std::string& out) {
  std::vector<Json> parsed;
  size_t start = 0;
  while (start < out.size()) {
    size_t end = out.find('\n', start);
    EXPECT_NE(end, std::string::npos) << "unterminated line";
    if (end == std::string::npos) break;
    parsed.push_back(Json::parse(out.substr(start, end - start)));
    start = end + 1;
  }
  return parsed;
}

class SpeakCommand : public testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/tallowbrook-speak-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir = pattern;
    out = dir + "/speech.wav";
    env.readInput = [this] {
      ++inputReads;
      return input;
    };
    env.createEngine = [this]() -> std::unique_ptr<SpeechEngine> {
      ++enginesCreated;
      return std::move(owned);
    };
  }
  void TearDown() override { std::filesystem::remove_all(dir); }

  Failure run(const std::vector<std::string>& args) {
    StdoutCapture capture;
    Failure failure = runWith(args, env);
    printed = capture.text();
    return failure;
  }

  std::unique_ptr<FakeEngine> owned = std::make_unique<FakeEngine>();
  FakeEngine& engine = *owned;
  std::optional<std::string> input = "Hello world.";  // nothing: more than the reader takes
  int inputReads = 0;
  int enginesCreated = 0;
  std::string dir;
  std::string out;
  std::string printed;
  Environment env;  // declared last: destroyed first, joining the fake's thread
};

TEST_F(SpeakCommand, NoActionFailsWithTheUsage) {
  EXPECT_EQ(run({}), "usage: speak <voices|render|preview>");
  EXPECT_EQ(printed, "");
  EXPECT_EQ(enginesCreated, 0);
}

TEST_F(SpeakCommand, AnUnknownActionIsNamed) {
  EXPECT_EQ(run({"Voices"}), "unknown speak command: Voices");
  EXPECT_EQ(run({"--out"}), "unknown speak command: --out");
  EXPECT_EQ(enginesCreated, 0);
}

TEST_F(SpeakCommand, VoicesPrintsEveryVoiceInOrderThenDone) {
  EXPECT_EQ(run({"voices", "extra", "words"}), std::nullopt);
  auto printedLines = lines(printed);
  ASSERT_EQ(printedLines.size(), 3u);
  Json first = {{"type", "voice"},     {"id", "gmw/en"},   {"name", "English (Great Britain)"},
                {"language", "en-GB"}, {"quality", 1},     {"gender", 1},
                {"novelty", false},    {"personal", false}};
  EXPECT_EQ(printedLines[0], first);
  EXPECT_EQ(printedLines[1]["id"], "gmw/de");
  EXPECT_EQ(printedLines[1]["gender"], 2);
  EXPECT_EQ(printedLines[2], Json::parse(R"({"type":"done"})"));
  EXPECT_EQ(inputReads, 0);
}

TEST_F(SpeakCommand, RenderWithoutArgumentsFailsBeforeReadingInput) {
  EXPECT_EQ(run({"render"}), "usage: render --out <path> [--voice id] [--rate f]");
  EXPECT_EQ(inputReads, 0);
  EXPECT_EQ(enginesCreated, 0);
}

TEST_F(SpeakCommand, RenderWithoutOutFailsWithItsUsage) {
  EXPECT_EQ(run({"render", "--voice", "gmw/en"}),
            "usage: render --out <path> [--voice id] [--rate f]");
  EXPECT_EQ(run({"render", out}), "usage: render --out <path> [--voice id] [--rate f]");
}

TEST_F(SpeakCommand, ATrailingOutDropsThePathGivenEarlier) {
  EXPECT_EQ(run({"render", "--out", out, "--out"}),
            "usage: render --out <path> [--voice id] [--rate f]");
  EXPECT_FALSE(std::filesystem::exists(out));
}

TEST_F(SpeakCommand, TooMuchTextIsRefusedBeforeTheVoiceStarts) {
  input = std::nullopt;
  EXPECT_EQ(run({"render", "--out", out}), "there is more text than can be read (over 16 MiB)");
  EXPECT_EQ(run({"preview"}), "there is more text than can be read (over 16 MiB)");
  EXPECT_EQ(enginesCreated, 0);
  EXPECT_FALSE(std::filesystem::exists(out));
}

TEST_F(SpeakCommand, EmptyOrBlankTextIsNotRead) {
  for (std::string text : {"", " ", "\n", " \t\r\n \u00a0\u3000\u2028 "}) {
    input = text;
    EXPECT_EQ(run({"render", "--out", out}), "there is no text to read") << text;
  }
  EXPECT_EQ(enginesCreated, 0);
  EXPECT_FALSE(std::filesystem::exists(out));
}

TEST_F(SpeakCommand, UndecodableInputCountsAsNoText) {
  input = "Hello \xff\xfe world";
  EXPECT_EQ(run({"render", "--out", out}), "there is no text to read");
}

TEST_F(SpeakCommand, AnUnknownVoiceIsNamed) {
  EXPECT_EQ(run({"render", "--out", out, "--voice", "en"}),
            "no voice with identifier en is installed");
  EXPECT_FALSE(engine.written);
}

TEST_F(SpeakCommand, ATrailingVoiceRendersWithTheDefaultVoice) {
  engine.script = {FakeBuffer::int16({1, 2}), FakeBuffer::end()};
  EXPECT_EQ(run({"render", "--voice", "gmw/de", "--out", out, "--voice"}), std::nullopt);
  ASSERT_TRUE(engine.written);
  EXPECT_EQ(engine.written->voiceId, std::nullopt);
}

TEST_F(SpeakCommand, AnUnparsableRateLeavesTheDefault) {
  engine.script = {FakeBuffer::int16({1, 2}), FakeBuffer::end()};
  EXPECT_EQ(run({"render", "--out", out, "--rate", "fast", "--pitch", "high"}), std::nullopt);
  ASSERT_TRUE(engine.written);
  EXPECT_EQ(engine.written->rate, 0.5f);
  EXPECT_EQ(engine.written->pitchMultiplier, 1.0f);
}

TEST_F(SpeakCommand, RenderPassesTheTextUntrimmedWithVoiceRateAndPitch) {
  input = "  Hi there \n";
  engine.script = {FakeBuffer::int16({1}), FakeBuffer::end()};
  EXPECT_EQ(run({"render", "--out", out, "--voice", "gmw/de", "--rate", "0.7", "--pitch", "1.5"}),
            std::nullopt);
  ASSERT_TRUE(engine.written);
  EXPECT_EQ(engine.written->text, "  Hi there \n");
  EXPECT_EQ(engine.written->voiceId, "gmw/de");
  EXPECT_EQ(engine.written->rate, 0.7f);
  EXPECT_EQ(engine.written->pitchMultiplier, 1.5f);
}

TEST_F(SpeakCommand, RenderWritesTheWavAndPrintsMarksThenDone) {
  engine.script = {FakeRange{0, 5}, FakeBuffer::int16(std::vector<int16_t>(22050, 7)),
                   FakeRange{6, 6}, FakeBuffer::int16(std::vector<int16_t>(22050, -7)),
                   FakeBuffer::end()};
  ASSERT_EQ(run({"render", "--out", out}), std::nullopt);
  auto printedLines = lines(printed);
  ASSERT_EQ(printedLines.size(), 3u);
  EXPECT_EQ(printedLines[0], Json::parse(R"({"type":"mark","atMs":0,"loc":0,"len":5})"));
  EXPECT_EQ(printedLines[1], Json::parse(R"({"type":"mark","atMs":1000,"loc":6,"len":6})"));
  EXPECT_EQ(printedLines[2],
            Json::parse(R"({"type":"done","ms":2000,"sampleRate":22050,"frames":44100})"));

  std::string wav = readFile(out);
  ASSERT_EQ(wav.size(), 44u + 88200u);
  EXPECT_EQ(wav.substr(0, 4), "RIFF");
  EXPECT_EQ(le32(wav, 4), 88236u);
  EXPECT_EQ(le32(wav, 24), 22050u);
  EXPECT_EQ(le32(wav, 40), 88200u);
  EXPECT_EQ(sampleAt(wav, 0), 7);
  EXPECT_EQ(sampleAt(wav, 44099), -7);
}

TEST_F(SpeakCommand, AMarkBeforeTheFirstBufferIsAtZero) {
  engine.script = {FakeRange{3, 2}, FakeRange{5, 1}, FakeBuffer::int16({1, 2, 3}),
                   FakeBuffer::end()};
  ASSERT_EQ(run({"render", "--out", out}), std::nullopt);
  auto printedLines = lines(printed);
  ASSERT_EQ(printedLines.size(), 3u);
  EXPECT_EQ(printedLines[0]["atMs"], 0);
  EXPECT_EQ(printedLines[1]["atMs"], 0);
}

TEST_F(SpeakCommand, TheFirstBufferSetsTheRate) {
  engine.script = {FakeBuffer::int16(std::vector<int16_t>(8000), 16000.7), FakeRange{1, 1},
                   FakeBuffer::end()};
  ASSERT_EQ(run({"render", "--out", out}), std::nullopt);
  auto printedLines = lines(printed);
  ASSERT_EQ(printedLines.size(), 2u);
  EXPECT_EQ(printedLines[0]["atMs"], 499);  // 8000 / 16000.7 s
  EXPECT_EQ(printedLines[1],
            Json::parse(R"({"type":"done","ms":499,"sampleRate":16000,"frames":8000})"));
  EXPECT_EQ(le32(readFile(out), 24), 16000u);
}

TEST_F(SpeakCommand, FloatStereoBuffersKeepTheFirstChannel) {
  engine.script = {FakeBuffer::float32({1.5f, 0.1f, -1.5f, 0.1f, 0.5f, 0.1f}, 22050, 2),
                   FakeBuffer::end()};
  ASSERT_EQ(run({"render", "--out", out}), std::nullopt);
  std::string wav = readFile(out);
  ASSERT_EQ(wav.size(), 44u + 6u);
  EXPECT_EQ(sampleAt(wav, 0), 32767);
  EXPECT_EQ(sampleAt(wav, 1), -32767);
  EXPECT_EQ(sampleAt(wav, 2), 16383);
  EXPECT_EQ(lines(printed).back()["frames"], 3);
}

TEST_F(SpeakCommand, BuffersThatAreNotPcmAreIgnored) {
  FakeBuffer notPcm = FakeBuffer::int16({9, 9, 9});
  notPcm.isPcm = false;
  FakeBuffer notPcmEmpty = FakeBuffer::end();
  notPcmEmpty.isPcm = false;
  engine.script = {notPcm, notPcmEmpty, FakeBuffer::int16({1, 2}), FakeBuffer::end()};
  ASSERT_EQ(run({"render", "--out", out}), std::nullopt);
  EXPECT_EQ(lines(printed).back()["frames"], 2);
}

TEST_F(SpeakCommand, ARateChangeFailsAndLeavesTheProvisionalHeader) {
  engine.script = {FakeBuffer::int16({1, 2}, 22050), FakeBuffer::int16({3, 4}, 44100),
                   FakeBuffer::end()};
  EXPECT_EQ(run({"render", "--out", out}), "the voice changed sample rate part-way through");
  EXPECT_EQ(printed, "");
  std::string wav = readFile(out);
  ASSERT_GE(wav.size(), 44u);
  EXPECT_EQ(le32(wav, 40), 0u);  // never finished
}

TEST_F(SpeakCommand, AnUnwritableFormatFails) {
  FakeBuffer int32 = FakeBuffer::int16({1, 2, 3, 4});
  int32.format = SampleFormat::int32;
  int32.frames = 2;
  engine.script = {int32, FakeBuffer::end()};
  EXPECT_EQ(run({"render", "--out", out}),
            "the audio format the voice produced could not be written");
}

TEST_F(SpeakCommand, AFileThatCannotBeOpenedIsNamed) {
  engine.script = {FakeBuffer::int16({1}), FakeBuffer::end()};
  std::string path = dir + "/missing/speech.wav";
  EXPECT_EQ(run({"render", "--out", path}), "could not open " + path + " for writing");
}

TEST_F(SpeakCommand, NoAudioAtAllFails) {
  engine.script = {FakeRange{0, 5}, FakeBuffer::end()};
  EXPECT_EQ(run({"render", "--out", out}), "the voice produced no audio at all");
  EXPECT_FALSE(std::filesystem::exists(out));
}

TEST_F(SpeakCommand, ARenderThatNeverEndsRunsOutOfTime) {
  env.renderLimit = std::chrono::milliseconds(200);
  engine.script = {FakeBuffer::int16({1, 2})};
  EXPECT_EQ(run({"render", "--out", out}), "the voice did not finish within ten minutes");
  EXPECT_EQ(printed, "");
}

TEST_F(SpeakCommand, PreviewSpeaksTheSampleSentenceForBlankInput) {
  input = " \n\n ";
  EXPECT_EQ(run({"preview"}), std::nullopt);
  ASSERT_TRUE(engine.spoken);
  EXPECT_EQ(engine.spoken->text, "The quick brown fox jumps over the lazy dog.");
  EXPECT_EQ(lines(printed), std::vector<Json>{Json::parse(R"({"type":"done"})")});
}

TEST_F(SpeakCommand, PreviewSpeaksTheTextAsReadWithVoiceAndRateButNoPitch) {
  input = " Listen.\n";
  EXPECT_EQ(run({"preview", "--voice", "gmw/de", "--rate", "0.25", "--pitch", "2", "--out", out}),
            std::nullopt);
  ASSERT_TRUE(engine.spoken);
  EXPECT_EQ(engine.spoken->text, " Listen.\n");
  EXPECT_EQ(engine.spoken->voiceId, "gmw/de");
  EXPECT_EQ(engine.spoken->rate, 0.25f);
  EXPECT_EQ(engine.spoken->pitchMultiplier, 1.0f);
  EXPECT_FALSE(std::filesystem::exists(out));
}

TEST_F(SpeakCommand, PreviewTakesOutAndPitchAsPlainWords) {
  EXPECT_EQ(run({"preview", "--pitch", "--voice", "gmw/de", "--out", "--rate", "0.9"}),
            std::nullopt);
  ASSERT_TRUE(engine.spoken);
  EXPECT_EQ(engine.spoken->voiceId, "gmw/de");
  EXPECT_EQ(engine.spoken->rate, 0.9f);
}

TEST_F(SpeakCommand, PreviewNamesAnUnknownVoice) {
  EXPECT_EQ(run({"preview", "--voice", "robot"}), "no voice with identifier robot is installed");
  EXPECT_FALSE(engine.spoken);
}

TEST_F(SpeakCommand, ACancelledPreviewCountsAsFinished) {
  engine.playbackEnd = FakePlaybackEnd::cancel;
  EXPECT_EQ(run({"preview"}), std::nullopt);
  EXPECT_EQ(printed, "{\"type\":\"done\"}\n");
}

TEST_F(SpeakCommand, APreviewThatCannotPlayFailsWithoutWaitingOutTheLimit) {
  engine.playbackEnd = FakePlaybackEnd::fail;
  env.previewLimit = std::chrono::hours(1);  // a hang would show as the test timing out
  EXPECT_EQ(run({"preview"}), "the voice did not finish speaking");
  EXPECT_EQ(printed, "");
}

TEST_F(SpeakCommand, APreviewThatNeverEndsRunsOutOfTime) {
  engine.playbackEnd = FakePlaybackEnd::never;
  env.previewLimit = std::chrono::milliseconds(200);
  EXPECT_EQ(run({"preview"}), "the voice did not finish speaking");
}

}  // namespace
}  // namespace tallowbrook::Speak
