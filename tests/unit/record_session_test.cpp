// RecordSession with fake sources, a hand-moved clock and the ticks called directly.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include <nlohmann/json.hpp>

#include "audio_test_support.h"
#include "record/record_error.h"
#include "record/record_session.h"
#include "record/record_start.h"
#include "record_fakes.h"
#include "stdout_capture.h"

namespace {

using namespace record_test;
using tallowbrook::RecordError;
using tallowbrook::RecordInput;
using tallowbrook::RecordSession;
using tallowbrook::Samples;

std::vector<nlohmann::json> linesOf(const std::string& text) {
  std::vector<nlohmann::json> lines;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    lines.push_back(nlohmann::json::parse(text.substr(start, end - start)));
    start = end + 1;
  }
  return lines;
}

std::vector<nlohmann::json> ofType(const std::vector<nlohmann::json>& lines,
                                   const std::string& type) {
  std::vector<nlohmann::json> found;
  for (const auto& line : lines) {
    if (line["type"] == type) found.push_back(line);
  }
  return found;
}

class SessionTest : public ::testing::Test {
 protected:
  std::shared_ptr<RecordSession> make(RecordInput input) {
    RecordSession::Timing timing;
    timing.runTimers = false;
    timing.systemStartWait = std::chrono::milliseconds(200);
    timing.systemStopWait = std::chrono::milliseconds(200);
    return RecordSession::create(path, input, platform, timing);
  }
  int64_t headerDataBytes() { return audio_test::le32(audio_test::readFile(path), 40); }

  audio_test::TempDir dir;
  std::string path = dir.file("take.wav");
  FakePlatform platform;
};

TEST_F(SessionTest, MicRecordingOfTwoAndAHalfSeconds) {
  StdoutCapture capture;
  auto session = make(RecordInput::mic);
  session->start(std::nullopt);
  for (int i = 0; i < 25; ++i) {
    session->micSink()(Samples(4800, 1000));
    session->tick();
  }
  session->stop();
  EXPECT_TRUE(session->completed());
  const auto lines = linesOf(capture.text());
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.front(), (nlohmann::json{{"type", "record-started"},
                                           {"path", path},
                                           {"input", "mic"},
                                           {"sampleRate", 48000},
                                           {"channels", 1},
                                           {"format", "wav-pcm-s16le"},
                                           {"bytesPerSecond", 96000}}));
  const auto levels = ofType(lines, "level");
  ASSERT_EQ(levels.size(), 25u);
  EXPECT_NEAR(levels[0]["rms"].get<double>(), 1000.0 / 32768, 1e-9);
  EXPECT_EQ(levels[0]["frames"], 4800);
  EXPECT_EQ(levels[0]["elapsedMs"], 100);
  EXPECT_EQ(levels[0]["paused"], false);
  EXPECT_EQ(levels[0]["clipped"], false);
  const auto stopped = ofType(lines, "record-stopped");
  ASSERT_EQ(stopped.size(), 1u);
  EXPECT_EQ(stopped[0], (nlohmann::json{{"type", "record-stopped"},
                                        {"path", path},
                                        {"frames", 120000},
                                        {"elapsedMs", 2500},
                                        {"bytes", 240044},
                                        {"sampleRate", 48000},
                                        {"channels", 1}}));
  EXPECT_EQ(std::filesystem::file_size(path), 240044u);
  EXPECT_EQ(lines.back()["type"], "record-stopped");
}

TEST_F(SessionTest, OneInputIsDeliveredEvery10MsAndAMixOfBothEvery50Ms) {
  using std::chrono::milliseconds;
  StdoutCapture capture;
  for (RecordInput input : {RecordInput::mic, RecordInput::system, RecordInput::both}) {
    platform.enginePeriod = platform.systemPeriod = milliseconds(0);
    auto session = make(input);
    session->start(std::nullopt);
    session->stop();
    const milliseconds expected(input == RecordInput::both ? 50 : 10);
    if (input != RecordInput::system) {
      EXPECT_EQ(platform.enginePeriod, expected);
    }
    if (input != RecordInput::mic) {
      EXPECT_EQ(platform.systemPeriod, expected);
    }
  }
}

TEST_F(SessionTest, ElapsedMsOf47999FramesIs999) {
  StdoutCapture capture;
  auto session = make(RecordInput::mic);
  session->start(std::nullopt);
  session->micSink()(Samples(47999, 0));
  session->tick();
  session->stop();
  const auto levels = ofType(linesOf(capture.text()), "level");
  ASSERT_EQ(levels.size(), 1u);
  EXPECT_EQ(levels[0]["elapsedMs"], 999);
}

TEST_F(SessionTest, HeaderIsFirstRewrittenAtTheFiftiethTick) {
  StdoutCapture capture;
  auto session = make(RecordInput::mic);
  session->start(std::nullopt);
  session->micSink()(Samples(480, 5));
  session->tick();
  EXPECT_EQ(headerDataBytes(), 0);
  for (int i = 2; i < 50; ++i) session->tick();
  EXPECT_EQ(headerDataBytes(), 0);
  session->tick();  // the 50th
  EXPECT_EQ(headerDataBytes(), 960);
  session->micSink()(Samples(480, 5));
  for (int i = 0; i < 49; ++i) session->tick();
  EXPECT_EQ(headerDataBytes(), 960);
  session->tick();  // the 100th
  EXPECT_EQ(headerDataBytes(), 1920);
  session->stop();
}

TEST_F(SessionTest, PauseResumeAndStopPrintOnlyWhenTheyTakeEffect) {
  StdoutCapture capture;
  auto session = make(RecordInput::mic);
  session->start(std::nullopt);
  session->micSink()(Samples(4800, 0));
  session->resume();  // recording: nothing
  session->pause();
  session->pause();
  session->micSink()(Samples(4800, 0));  // discarded while paused
  session->tick();
  session->resume();
  session->stop();
  session->resume();  // after stop: nothing
  session->pause();
  session->stop();  // a second stop: nothing
  const auto lines = linesOf(capture.text());
  const auto paused = ofType(lines, "record-paused");
  ASSERT_EQ(paused.size(), 1u);
  EXPECT_EQ(paused[0], (nlohmann::json{{"type", "record-paused"}, {"elapsedMs", 100}}));
  const auto resumed = ofType(lines, "record-resumed");
  ASSERT_EQ(resumed.size(), 1u);
  EXPECT_EQ(resumed[0]["elapsedMs"], 100);
  const auto levels = ofType(lines, "level");
  ASSERT_EQ(levels.size(), 1u);
  EXPECT_EQ(levels[0]["paused"], true);
  EXPECT_EQ(levels[0]["rms"], 0.0);
  EXPECT_EQ(ofType(lines, "record-stopped").size(), 1u);
  EXPECT_EQ(ofType(lines, "record-stopped")[0]["frames"], 4800);
}

TEST_F(SessionTest, SingleSourceWarningWithSilenceFillsTheGap) {
  StdoutCapture capture;
  auto session = make(RecordInput::mic);
  session->start(std::nullopt);
  session->warningSink()("the input device changed. Recording continues at 48000 Hz.", 300);
  session->warningSink()("zero gap", 0);
  session->warningSink()("no gap", std::nullopt);
  {
    const auto held = session->writer().hold();
    EXPECT_EQ(session->writer().frames(held), 14400);
  }
  session->tick();
  session->stop();
  const auto lines = linesOf(capture.text());
  const auto warnings = ofType(lines, "record-warning");
  ASSERT_EQ(warnings.size(), 3u);
  EXPECT_EQ(warnings[0], (nlohmann::json{{"type", "record-warning"},
                                         {"message",
                                          "the input device changed. Recording continues at "
                                          "48000 Hz."},
                                         {"silenceMs", 300}}));
  EXPECT_EQ(warnings[1]["silenceMs"], 0);
  EXPECT_FALSE(warnings[2].contains("silenceMs"));
  EXPECT_EQ(ofType(lines, "level")[0]["rms"], 0.0) << "the fill does not reach the meter";
  const auto samples = audio_test::samplesFrom(audio_test::readFile(path), 44);
  EXPECT_EQ(samples, std::vector<int16_t>(14400, 0));
}

TEST_F(SessionTest, SilenceIsFilledEvenWhilePaused) {
  StdoutCapture capture;
  auto session = make(RecordInput::mic);
  session->start(std::nullopt);
  session->pause();
  session->warningSink()("gap", 1000);
  session->stop();
  EXPECT_EQ(ofType(linesOf(capture.text()), "record-stopped")[0]["frames"], 48000);
}

TEST_F(SessionTest, SilenceOf2500MsIsWrittenInBlocksOf48000) {
  EXPECT_EQ(tallowbrook::silenceBlocks(2500, 1), (std::vector<int64_t>{48000, 48000, 24000}));
  EXPECT_EQ(tallowbrook::silenceBlocks(300, 1), (std::vector<int64_t>{14400}));
  EXPECT_TRUE(tallowbrook::silenceBlocks(0, 1).empty());
  EXPECT_TRUE(tallowbrook::silenceBlocks(-5, 1).empty());
}

TEST_F(SessionTest, WithAMixerAWarningFillsNothing) {
  StdoutCapture capture;
  auto session = make(RecordInput::both);
  session->start(std::nullopt);
  session->warningSink()("gap", 300);
  session->stop();
  const auto lines = linesOf(capture.text());
  const auto warnings = ofType(lines, "record-warning");
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_FALSE(warnings[0].contains("silenceMs"));
  EXPECT_EQ(ofType(lines, "record-stopped")[0]["frames"], 0);
}

// Both queues get the 40 ms cushion and the first tick starts the mix (writing nothing).
void startMix(RecordSession& session, FakeClock& clock) {
  session.micSink()(Samples(1920, 0));
  session.systemSink()(Samples(1920, 0));
  clock.advance(50'000'000);
  session.mixTick();
}

TEST_F(SessionTest, MixTicksFollowTheClockAndCarryTheFraction) {
  StdoutCapture capture;
  auto session = make(RecordInput::both);
  session->start(std::nullopt);
  auto frames = [&] {
    const auto held = session->writer().hold();
    return session->writer().frames(held);
  };
  startMix(*session, platform.fakeClock);
  EXPECT_EQ(frames(), 0);
  session->micSink()(Samples(48000, 0));
  session->systemSink()(Samples(48000, 0));
  platform.fakeClock.advance(50'000'000);
  session->mixTick();
  EXPECT_EQ(frames(), 2400);
  // 24991667 ns is 1199.600016 frames: 1199 drained, 0.600016 carried.
  platform.fakeClock.advance(24'991'667);
  session->mixTick();
  EXPECT_EQ(frames(), 2400 + 1199);
  platform.fakeClock.advance(24'991'667);
  session->mixTick();
  EXPECT_EQ(frames(), 2400 + 1199 + 1200);  // 1199.600016 + 0.600016
  platform.fakeClock.advance(50'000'000);
  session->mixTick();
  EXPECT_EQ(frames(), 2400 + 1199 + 1200 + 2400);  // 2400.200032
  session->stop();
}

TEST_F(SessionTest, TheMixWaitsForTheCushionOfBothSourcesAndStartsThemTogether) {
  StdoutCapture capture;
  auto session = make(RecordInput::both);
  session->start(std::nullopt);
  auto frames = [&] {
    const auto held = session->writer().hold();
    return session->writer().frames(held);
  };
  session->micSink()(Samples(3000, 5));  // the microphone began first
  platform.fakeClock.advance(50'000'000);
  session->mixTick();
  EXPECT_EQ(frames(), 0) << "no system audio yet: nothing is padded";
  session->systemSink()(Samples(1920, 7));
  platform.fakeClock.advance(50'000'000);
  session->mixTick();
  EXPECT_EQ(frames(), 0);
  EXPECT_EQ(session->mixer()->queued(), (std::pair<int64_t, int64_t>{1920, 1920}))
      << "the microphone's first 1080 samples came before the start";
  session->micSink()(Samples(480, 5));
  session->systemSink()(Samples(480, 7));
  platform.fakeClock.advance(10'000'000);
  session->mixTick();
  EXPECT_EQ(frames(), 480);
  EXPECT_EQ(session->mixer()->queued(), (std::pair<int64_t, int64_t>{1920, 1920}));
  session->stop();
}

TEST_F(SessionTest, AudioBeyondTheCushionAtTheStartIsWrittenAtOnce) {
  StdoutCapture capture;
  auto session = make(RecordInput::both);
  session->start(std::nullopt);
  session->micSink()(Samples(3000, 5));
  session->systemSink()(Samples(3100, 7));
  platform.fakeClock.advance(50'000'000);
  session->mixTick();
  const auto held = session->writer().hold();
  EXPECT_EQ(session->writer().frames(held), 3000 - 1920) << "nothing of it is lost";
  EXPECT_EQ(session->mixer()->queued(), (std::pair<int64_t, int64_t>{1920, 1920}));
}

TEST_F(SessionTest, AShortQueueIsWaitedForRatherThanPadded) {
  StdoutCapture capture;
  auto session = make(RecordInput::both);
  session->start(std::nullopt);
  auto frames = [&] {
    const auto held = session->writer().hold();
    return session->writer().frames(held);
  };
  startMix(*session, platform.fakeClock);
  // A stall: 100 ms pass with no delivery; the mix takes the 40 ms both hold and owes the rest.
  platform.fakeClock.advance(100'000'000);
  session->mixTick();
  EXPECT_EQ(frames(), 1920);
  // The delayed audio arrives: the debt is paid without any padding.
  session->micSink()(Samples(7200, 5));
  session->systemSink()(Samples(7200, 7));
  platform.fakeClock.advance(50'000'000);
  session->mixTick();
  EXPECT_EQ(frames(), 1920 + 2880 + 2400);
  // (the followers began to steer at the first drain, stretching by up to 1500 ppm)
  EXPECT_NEAR(double(session->mixer()->queued().first), 1920, 12);
  EXPECT_NEAR(double(session->mixer()->queued().second), 1920, 12);
  session->stop();
  const auto samples = audio_test::samplesFrom(audio_test::readFile(path), 44);
  EXPECT_EQ(std::count(samples.begin() + 1920, samples.end(), int16_t(12)),
            int64_t(samples.size()) - 1920)
      << "no silence was padded in";
}

TEST_F(SessionTest, ALateSourceIsPaddedAndThenPrimedWithTheCushion) {
  StdoutCapture capture;
  auto session = make(RecordInput::both);
  session->start(std::nullopt);
  auto frames = [&] {
    const auto held = session->writer().hold();
    return session->writer().frames(held);
  };
  session->micSink()(Samples(4800, 5));
  for (int i = 0; i < 10; ++i) {  // 0.5 s without system audio: the mix starts anyway
    platform.fakeClock.advance(50'000'000);
    session->mixTick();
  }
  EXPECT_EQ(frames(), 0);
  EXPECT_EQ(session->mixer()->queued(), (std::pair<int64_t, int64_t>{1920, 0}));
  platform.fakeClock.advance(950'000'000);
  session->mixTick();
  EXPECT_EQ(frames(), 0) << "950 ms behind: waited for";
  platform.fakeClock.advance(60'000'000);
  session->mixTick();
  EXPECT_EQ(frames(), 480) << "1010 ms behind: padded to within 1 s";
  // System audio arrives: behind silence for the 1 s the mix still owes and the cushion.
  session->systemSink()(Samples(480, 7));
  EXPECT_EQ(session->mixer()->queued().second, 48000 + 1920 + 480);
  session->stop();
}

TEST_F(SessionTest, PausedMixTicksDrainNothingAndKeepTheQueues) {
  StdoutCapture capture;
  auto session = make(RecordInput::both);
  session->start(std::nullopt);
  startMix(*session, platform.fakeClock);
  session->pause();
  platform.fakeClock.advance(50'000'000);
  session->mixTick();
  EXPECT_EQ(session->mixer()->longestQueue(), 1920);
  session->micSink()(Samples(1000, 7));  // discarded while paused
  EXPECT_EQ(session->mixer()->longestQueue(), 1920);
  session->resume();
  platform.fakeClock.advance(10'000'000);  // 480 frames
  session->mixTick();
  EXPECT_EQ(session->mixer()->longestQueue(), 1440);
  session->stop();
}

TEST_F(SessionTest, StopWritesWhatIsQueuedMixed) {
  StdoutCapture capture;
  auto session = make(RecordInput::both);
  session->start(std::nullopt);
  session->micSink()(Samples(500, 100));
  session->systemSink()(Samples(200, 20));
  session->stop();
  const auto stopped = ofType(linesOf(capture.text()), "record-stopped");
  ASSERT_EQ(stopped.size(), 1u);
  EXPECT_EQ(stopped[0]["frames"], 500);
  const auto samples = audio_test::samplesFrom(audio_test::readFile(path), 44);
  ASSERT_EQ(samples.size(), 500u);
  EXPECT_EQ(samples[0], 120);
  EXPECT_EQ(samples[199], 120);
  EXPECT_EQ(samples[200], 100);
}

TEST_F(SessionTest, MixerDropGivesOneWarningPerDrain) {
  StdoutCapture capture;
  auto session = make(RecordInput::both);
  session->start(std::nullopt);
  startMix(*session, platform.fakeClock);
  session->micSink()(Samples(240001, 1));
  platform.fakeClock.advance(50'000'000);
  session->mixTick();
  platform.fakeClock.advance(50'000'000);
  session->mixTick();
  session->stop();
  const auto warnings = ofType(linesOf(capture.text()), "record-warning");
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_EQ(warnings[0]["message"],
            "one audio source ran more than five seconds ahead; the oldest of its audio was "
            "dropped to keep the mix aligned.");
}

TEST_F(SessionTest, SystemInputReadsNoMicrophonePermission) {
  StdoutCapture capture;
  platform.authorization = tallowbrook::MicrophoneAuthorization::denied;
  auto session = make(RecordInput::system);
  session->start(std::nullopt);
  EXPECT_EQ(platform.authorizationReads.load(), 0);
  session->stop();
  EXPECT_EQ(platform.system->stops, 1);
}

struct PermissionCase {
  tallowbrook::MicrophoneAuthorization status;
  const char* message;
};

TEST_F(SessionTest, MicrophonePermissionFailures) {
  const PermissionCase cases[] = {
      {tallowbrook::MicrophoneAuthorization::denied,
       "Microphone access is off. Open System Settings → Privacy & Security → Microphone, "
       "switch Tallowbrook on, then try again."},
      {tallowbrook::MicrophoneAuthorization::restricted,
       "Microphone access is off. Open System Settings → Privacy & Security → Microphone, "
       "switch Tallowbrook on, then try again."},
      {tallowbrook::MicrophoneAuthorization::notDetermined,
       "Microphone access has not been asked for yet. Ask for it before starting a recording."},
      {tallowbrook::MicrophoneAuthorization::noSoundServer, tallowbrook::kNoSoundServerText},
  };
  for (const PermissionCase& c : cases) {
    platform.authorization = c.status;
    auto session = make(RecordInput::both);
    try {
      session->start(std::nullopt);
      FAIL() << "start did not fail";
    } catch (const RecordError& error) {
      EXPECT_EQ(error.message(), c.message);
    }
    EXPECT_EQ(platform.engine->starts, 0) << "checked before any source is built";
  }
}

TEST_F(SessionTest, SystemAudioThatDoesNotAnswerStopsTheMicAndFinishesTheFile) {
  StdoutCapture capture;
  platform.system->hangStart = true;
  auto session = make(RecordInput::both);
  try {
    session->start(std::nullopt);
    FAIL() << "start did not fail";
  } catch (const RecordError& error) {
    EXPECT_EQ(error.message(), std::string(tallowbrook::kScreenRecordingOffText) +
                                   " (ScreenCaptureKit did not answer within fifteen seconds.)");
  }
  EXPECT_FALSE(platform.engine->running) << "the microphone was stopped";
  EXPECT_EQ(std::filesystem::file_size(path), 44u);
  EXPECT_TRUE(capture.text().empty()) << "no record-started";
  releaseHangs(*platform.system);
}

TEST_F(SessionTest, SystemAudioStartFailureIsTheSessionsFailure) {
  platform.system->permitted = false;
  auto session = make(RecordInput::system);
  try {
    session->start(std::nullopt);
    FAIL() << "start did not fail";
  } catch (const RecordError& error) {
    EXPECT_EQ(error.message(), tallowbrook::kScreenRecordingOffText);
  }
  EXPECT_EQ(platform.system->serviceCalls, 0) << "failed before any call to the service";
}

TEST_F(SessionTest, HangingSystemAudioStopIsAbandonedAfterTheWait) {
  StdoutCapture capture;
  auto session = make(RecordInput::system);
  session->start(std::nullopt);
  platform.system->hangStop = true;
  session->stop();
  EXPECT_TRUE(session->completed());
  EXPECT_EQ(ofType(linesOf(capture.text()), "record-stopped").size(), 1u);
  releaseHangs(*platform.system);
}

TEST_F(SessionTest, RateChangeWarningNamesBothRates) {
  StdoutCapture capture;
  auto session = make(RecordInput::mic);
  session->start(std::nullopt);
  deliver(*platform.engine, 4800);
  {
    std::lock_guard<std::mutex> held(platform.engine->lock);
    platform.engine->format = {tallowbrook::SampleType::float32, 44100.0, 2};
  }
  deliver(*platform.engine, 4410);
  session->stop();
  const auto warnings = ofType(linesOf(capture.text()), "record-warning");
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_EQ(warnings[0]["message"],
            "the input moved from 48000 Hz to 44100 Hz; it is being converted to 48000 Hz so "
            "the file stays one recording.");
}

TEST_F(SessionTest, TimersTickEveryHundredMilliseconds) {
  StdoutCapture capture;
  RecordSession::Timing timing;
  auto session = RecordSession::create(path, RecordInput::mic, platform, timing);
  session->start(std::nullopt);
  std::this_thread::sleep_for(std::chrono::milliseconds(1050));
  session->stop();
  const auto levels = ofType(linesOf(capture.text()), "level");
  EXPECT_GE(levels.size(), 9u);
  EXPECT_LE(levels.size(), 11u);
}

}  // namespace

namespace {

TEST_F(SessionTest, ControlLinesAreTrimmedOfHorizontalSpaceOnly) {
  StdoutCapture capture;
  auto session = make(RecordInput::mic);
  session->start(std::nullopt);
  using tallowbrook::Record::applyControlLine;
  EXPECT_TRUE(applyControlLine(*session, "  pause\t"));
  EXPECT_TRUE(applyControlLine(*session, "\u00a0resume\u3000"));
  EXPECT_TRUE(applyControlLine(*session, ""));
  EXPECT_TRUE(applyControlLine(*session, " \t "));
  EXPECT_TRUE(applyControlLine(*session, "PAUSE"));
  EXPECT_TRUE(applyControlLine(*session, "pause\r"));
  EXPECT_FALSE(applyControlLine(*session, "\tstop "));
  session->stop();
  const auto lines = linesOf(capture.text());
  EXPECT_EQ(ofType(lines, "record-paused").size(), 1u);
  EXPECT_EQ(ofType(lines, "record-resumed").size(), 1u);
  const auto warnings = ofType(lines, "record-warning");
  ASSERT_EQ(warnings.size(), 2u);
  EXPECT_EQ(warnings[0]["message"], "unknown control command: PAUSE");
  EXPECT_EQ(warnings[1]["message"], "unknown control command: pause\r");
}

}  // namespace
