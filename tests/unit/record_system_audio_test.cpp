// SystemAudioSource through a fake capture service; the serial queue under the sources.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "record/record_error.h"
#include "record/serial_queue.h"
#include "record/system_audio_source.h"
#include "record_fakes.h"

namespace {

using namespace record_test;
using tallowbrook::SystemAudioSource;

struct CountingConverter final : tallowbrook::PlatformConverter {
  std::optional<std::string> convert(tallowbrook::OutputBuffer&,
                                     const tallowbrook::InputBlock&) override {
    return std::nullopt;
  }
};

class SystemAudioTest : public ::testing::Test {
 protected:
  std::shared_ptr<SystemAudioSource> make() {
    auto converter = std::make_unique<tallowbrook::ToTarget>(
        tallowbrook::recordingTargetFormat(), nullptr,
        [this](const tallowbrook::AudioFormat&, const tallowbrook::AudioFormat&) {
          ++builds;
          return std::make_shared<CountingConverter>();
        });
    return std::make_shared<SystemAudioSource>(
        std::make_unique<FakeSystemCapture>(state), std::move(converter),
        [](tallowbrook::Samples) {}, warnings.sink());
  }
  std::shared_ptr<FakeSystemCapture::State> state = std::make_shared<FakeSystemCapture::State>();
  Warnings warnings;
  std::atomic<int> builds{0};
};

TEST_F(SystemAudioTest, WithoutPermissionStartFailsBeforeAnyServiceCall) {
  state->permitted = false;
  auto source = make();
  try {
    source->start();
    FAIL() << "start did not fail";
  } catch (const tallowbrook::RecordError& error) {
    EXPECT_EQ(error.message(), tallowbrook::kScreenRecordingOffText);
  }
  EXPECT_EQ(state->serviceCalls, 0);
}

TEST_F(SystemAudioTest, ServiceFailureIsAPlainSentence) {
  state->startError = "No such entity";
  auto source = make();
  try {
    source->start();
    FAIL() << "start did not fail";
  } catch (const tallowbrook::RecordError& error) {
    EXPECT_EQ(error.message(),
              "System audio cannot be captured: the sound server said \"No such entity\". Check "
              "that the sound server is running, then try again.");
  }
}

TEST_F(SystemAudioTest, EmptyBuffersNeverReachTheConverter) {
  auto source = make();
  source->start();
  const std::vector<std::byte> none;
  state->deliver(tallowbrook::PcmBuffer{{tallowbrook::SampleType::float32, 48000.0, 2}, none});
  EXPECT_EQ(builds.load(), 0);
  const std::vector<std::byte> some(8 * 480);
  state->deliver(tallowbrook::PcmBuffer{{tallowbrook::SampleType::float32, 48000.0, 2}, some});
  EXPECT_EQ(builds.load(), 1);
}

TEST_F(SystemAudioTest, StopOfANeverStartedSourceReturnsAtOnce) {
  auto source = make();
  source->stop();
  EXPECT_EQ(state->serviceCalls, 0);
}

TEST_F(SystemAudioTest, AStreamErrorGivesExactlyOneWarning) {
  auto source = make();
  source->start();
  state->stopped("Connection terminated");
  auto list = warnings.take();
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].first, "system audio capture stopped: Connection terminated");
  EXPECT_FALSE(list[0].second.has_value());
  EXPECT_EQ(state->stops, 0) << "nothing else is done";
  source->stop();
  EXPECT_EQ(state->stops, 1);
}

TEST(SerialQueue, RunsTasksInOrderOneAtATime) {
  tallowbrook::SerialQueue queue;
  std::vector<int> seen;
  for (int i = 0; i < 100; ++i) queue.async([&seen, i] { seen.push_back(i); });
  queue.sync([] {});
  ASSERT_EQ(seen.size(), 100u);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(seen[size_t(i)], i);
}

TEST(SerialQueue, TimerRepeatsUntilCancelled) {
  tallowbrook::SerialQueue queue;
  std::atomic<int> runs{0};
  auto id = queue.addTimer(std::chrono::milliseconds(20), [&runs] { ++runs; });
  std::this_thread::sleep_for(std::chrono::milliseconds(210));
  queue.cancelTimer(id);
  queue.sync([] {});
  const int seen = runs.load();
  EXPECT_GE(seen, 8);
  EXPECT_LE(seen, 11);
  std::this_thread::sleep_for(std::chrono::milliseconds(60));
  EXPECT_EQ(runs.load(), seen);
}

TEST(SerialQueue, MayBeDestroyedByItsOwnTask) {
  auto queue = std::make_shared<tallowbrook::SerialQueue>();
  std::atomic<bool> ran{false};
  auto* raw = queue.get();
  raw->async([held = std::move(queue), &ran]() mutable {
    ran = true;
    held.reset();
  });
  for (int i = 0; i < 200 && !ran; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_TRUE(ran);
}

}  // namespace
