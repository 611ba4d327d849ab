// MicSource driven through a fake engine and a clock moved by hand.
#include <gtest/gtest.h>

#include "record/mic_source.h"
#include "record/record_error.h"
#include "record_fakes.h"

namespace {

using namespace record_test;
using tallowbrook::MicSource;
using tallowbrook::RecordError;

constexpr uint64_t kMs = 1'000'000;

const char* const kWentAway =
    "the input device went away and macOS is offering no replacement. The recording is still "
    "running and will resume when one returns.";
const char* const kSilence =
    "the input has produced no audio for two seconds. Recording continues; check the device.";

class MicSourceTest : public ::testing::Test {
 protected:
  std::shared_ptr<MicSource> make() {
    auto source = MicSource::create(
        std::make_unique<FakeEngine>(engine),
        std::make_unique<tallowbrook::ToTarget>(tallowbrook::recordingTargetFormat(), nullptr,
                                                tallowbrook::makeSoxrConverter),
        [this](tallowbrook::Samples samples) { delivered += samples.size(); }, warnings.sink(),
        clock);
    return source;
  }
  std::vector<std::pair<std::string, std::optional<int64_t>>> warningsAfter(MicSource& source) {
    source.drainQueue();
    return warnings.take();
  }

  std::shared_ptr<FakeEngine::State> engine = std::make_shared<FakeEngine::State>();
  FakeClock clock;
  Warnings warnings;
  std::atomic<size_t> delivered{0};
};

TEST_F(MicSourceTest, StartsOnTheDefaultInputAndDeliversConvertedSamples) {
  auto source = make();
  source->start(std::nullopt);
  EXPECT_TRUE(engine->running);
  for (int i = 0; i < 10; ++i) deliver(*engine, 4800);
  EXPECT_GT(delivered.load(), 0u);
  EXPECT_TRUE(warningsAfter(*source).empty());
  source->stop();
}

TEST_F(MicSourceTest, UnknownDeviceWarnsAndRecordsFromTheDefault) {
  engine->devices["mic2"] = 7;
  auto source = make();
  source->start(std::string("Mic2"));
  EXPECT_TRUE(engine->running);
  EXPECT_FALSE(engine->selected.has_value());
  auto list = warningsAfter(*source);
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].first,
            "input device Mic2 is not connected. Recording from the system default instead.");
  EXPECT_FALSE(list[0].second.has_value());
}

TEST_F(MicSourceTest, KnownDeviceIsSelected) {
  engine->devices["mic2"] = 7;
  auto source = make();
  source->start(std::string("mic2"));
  EXPECT_EQ(engine->selected, 7u);
  EXPECT_TRUE(warningsAfter(*source).empty());
}

TEST_F(MicSourceTest, RefusedSelectionWarnsWithTheSignedStatus) {
  engine->devices["mic2"] = 7;
  engine->selectStatus = -10851;
  auto source = make();
  source->start(std::string("mic2"));
  EXPECT_TRUE(engine->running);
  auto list = warningsAfter(*source);
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].first,
            "could not select that input device (CoreAudio -10851). Recording from the system "
            "default instead.");
}

TEST_F(MicSourceTest, NoInputFailsTheStart) {
  engine->format.sampleRate = 0;
  auto source = make();
  try {
    source->start(std::nullopt);
    FAIL() << "start did not fail";
  } catch (const RecordError& error) {
    EXPECT_EQ(error.message(),
              "no microphone input is available. If Microphone access is off, open System "
              "Settings → Privacy & Security → Microphone, switch Tallowbrook on, then try "
              "again.");
  }
}

TEST_F(MicSourceTest, EngineStartFailureIsTheEnginesError) {
  engine->startError = "Connection refused";
  auto source = make();
  EXPECT_THROW(
      {
        try {
          source->start(std::nullopt);
        } catch (const std::runtime_error& error) {
          EXPECT_STREQ(error.what(), "Connection refused");
          throw;
        }
      },
      std::runtime_error);
}

TEST_F(MicSourceTest, SilenceOfTwoSecondsAndOneNanosecondWarnsOnce) {
  auto source = make();
  source->start(std::nullopt);
  clock.advance(2'000'000'000ULL);
  source->poll();
  EXPECT_TRUE(warningsAfter(*source).empty()) << "exactly two seconds is not yet silence";
  clock.advance(1);
  source->poll();
  auto list = warningsAfter(*source);
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].first, kSilence);
  for (int i = 0; i < 30; ++i) {
    clock.advance(100 * kMs);
    source->poll();
  }
  EXPECT_TRUE(warningsAfter(*source).empty());
  // A buffer ends the silence; a new one of more than two seconds warns again.
  deliver(*engine, 480);
  clock.advance(2'000'000'001ULL);
  source->poll();
  list = warningsAfter(*source);
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].first, kSilence);
}

TEST_F(MicSourceTest, RebuildAfter300MsPassesTheGap) {
  auto source = make();
  source->start(std::nullopt);
  deliver(*engine, 480);
  clock.advance(300 * kMs);
  announceChange(*engine);
  auto list = warningsAfter(*source);
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].first, "the input device changed. Recording continues at 48000 Hz.");
  EXPECT_EQ(list[0].second, 300);
  EXPECT_TRUE(engine->running);
  EXPECT_EQ(engine->starts, 2);
}

TEST_F(MicSourceTest, RebuildAfter250MsPassesNoGap) {
  auto source = make();
  source->start(std::nullopt);
  deliver(*engine, 480);
  clock.advance(250 * kMs);
  announceChange(*engine);
  auto list = warningsAfter(*source);
  ASSERT_EQ(list.size(), 1u);
  EXPECT_FALSE(list[0].second.has_value());
}

TEST_F(MicSourceTest, NoInputAfterAChangeRetriesEveryTwoSecondsUntilOneComesBack) {
  auto source = make();
  source->start(std::nullopt);
  {
    std::lock_guard<std::mutex> held(engine->lock);
    engine->format.sampleRate = 0;
  }
  announceChange(*engine);
  auto list = warningsAfter(*source);
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].first, kWentAway);
  EXPECT_FALSE(engine->running);

  // Polls every 100 ms: a retry only after more than two seconds since the last one.
  int wentAway = 0;
  for (int i = 0; i < 45; ++i) {
    clock.advance(100 * kMs);
    source->poll();
    for (auto& warning : warningsAfter(*source)) {
      EXPECT_EQ(warning.first, kWentAway);
      ++wentAway;
    }
  }
  EXPECT_EQ(wentAway, 2) << "4.5 s of polling retries twice";

  {
    std::lock_guard<std::mutex> held(engine->lock);
    engine->format = {tallowbrook::SampleType::s16, 44100.0, 2};
  }
  std::vector<std::pair<std::string, std::optional<int64_t>>> back;
  for (int i = 0; i < 25 && back.empty(); ++i) {
    clock.advance(100 * kMs);
    source->poll();
    back = warningsAfter(*source);
  }
  ASSERT_EQ(back.size(), 1u);
  EXPECT_EQ(back[0].first, "the input device came back. Recording continues at 44100 Hz.");
  ASSERT_TRUE(back[0].second.has_value());
  EXPECT_GE(*back[0].second, 6000);
  EXPECT_TRUE(engine->running);
}

TEST_F(MicSourceTest, RestartFailureWarnsAndRetries) {
  auto source = make();
  source->start(std::nullopt);
  engine->startError = "Device or resource busy";
  announceChange(*engine);
  auto list = warningsAfter(*source);
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].first, "could not restart on the new input device: Device or resource busy");
  engine->startError.reset();
  clock.advance(2100 * kMs);
  source->poll();
  list = warningsAfter(*source);
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].first, "the input device came back. Recording continues at 48000 Hz.");
}

TEST_F(MicSourceTest, AfterStopQueuedWorkDoesNothing) {
  engine->blocked = true;
  auto source = make();
  source->start(std::nullopt);
  source->stop();
  announceChange(*engine);  // a queued rebuild
  clock.advance(3'000'000'000ULL);
  source->poll();  // no lid check, retry or silence warning
  EXPECT_TRUE(warningsAfter(*source).empty());
  EXPECT_FALSE(engine->running);
  EXPECT_EQ(engine->starts, 1);
  EXPECT_EQ(engine->lidQueries, 0);
}

TEST_F(MicSourceTest, WarningsRaisedBeforeStopButDeliveredAfterAreDropped) {
  auto source = make();
  source->start(std::nullopt);
  deliver(*engine, 480);
  clock.advance(300 * kMs);
  source->stop();
  announceChange(*engine);
  EXPECT_TRUE(warningsAfter(*source).empty());
}

TEST_F(MicSourceTest, WarningsCarryTheLidTextOnlyAfterActivation) {
  engine->devices.clear();
  engine->blocked = true;
  auto source = make();
  source->start(std::string("gone"));
  auto list = warningsAfter(*source);
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].first,
            "input device gone is not connected. Recording from the system default instead.");
  source->activateWarnings();
  clock.advance(300 * kMs);
  announceChange(*engine);
  list = warningsAfter(*source);
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].first, "the input device changed. Recording continues at 48000 Hz. " +
                               std::string(tallowbrook::kLidClosedText));
}

TEST_F(MicSourceTest, LidCheckWarnsWhenTheStateTurnsAtMostOnceASecond) {
  auto source = make();
  source->start(std::nullopt);
  engine->blocked = true;
  source->poll();  // the first poll checks the lid
  auto list = warningsAfter(*source);
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].first, tallowbrook::kLidClosedText);
  const int queries = engine->lidQueries;
  clock.advance(500 * kMs);
  deliver(*engine, 480);
  source->poll();
  EXPECT_TRUE(warningsAfter(*source).empty());
  EXPECT_EQ(engine->lidQueries, queries) << "less than a second since the last check";
  engine->blocked.reset();  // unknown: no change
  clock.advance(600 * kMs);
  deliver(*engine, 480);
  source->poll();
  EXPECT_TRUE(warningsAfter(*source).empty());
  engine->blocked = false;
  clock.advance(1000 * kMs);
  deliver(*engine, 480);
  source->poll();
  list = warningsAfter(*source);
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].first, tallowbrook::kLidClearedText);
}

}  // namespace
