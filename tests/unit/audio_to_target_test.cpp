#include "audio/to_target.h"

#include "audio/soxr_converter.h"

#include <chrono>
#include <cstddef>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "stdout_capture.h"

namespace tallowbrook {
namespace {

// A platform converter that records how it is used and answers as told.
struct FakeConverterLog {
  std::vector<AudioFormat> builds;              // formats a converter was built for
  std::vector<uint32_t> capacities;             // output capacity of each call
  std::vector<std::vector<InputStatus>> pulls;  // statuses the input gave, per call
  std::vector<std::string> events;              // "build", "rate a->b", in order
  std::optional<std::string> failWith;          // next call fails with this
  bool produceNothing = false;                  // next calls produce no samples
  std::vector<AudioFormat> refuse;              // formats the factory cannot build
};

class FakeConverter final : public PlatformConverter {
 public:
  explicit FakeConverter(std::shared_ptr<FakeConverterLog> log) : log_(std::move(log)) {}

  // Asks for input three times; turns each frame it got into one sample holding the frame's
  // index in the stream (so tests see that the state carries across calls).
  std::optional<std::string> convert(OutputBuffer& output, const InputBlock& input) override {
    log_->capacities.push_back(output.frameCapacity);
    std::vector<InputStatus>& statuses = log_->pulls.emplace_back();
    uint64_t frames = 0;
    for (int i = 0; i < 3; ++i) {
      InputStatus status = InputStatus::endOfStream;
      const PcmBuffer* buffer = input(4096, status);
      statuses.push_back(status);
      if (buffer) frames += buffer->frameLength();
    }
    if (log_->failWith) {
      std::string error = *log_->failWith;
      log_->failWith.reset();
      return error;
    }
    if (log_->produceNothing) return std::nullopt;
    for (uint64_t f = 0; f < frames && output.samples.size() < output.frameCapacity; ++f) {
      output.samples.push_back(int16_t(next_++));
    }
    return std::nullopt;
  }

 private:
  std::shared_ptr<FakeConverterLog> log_;
  int next_ = 0;
};

ConverterFactory fakeFactory(std::shared_ptr<FakeConverterLog> log) {
  return [log](const AudioFormat& from, const AudioFormat&) -> std::shared_ptr<PlatformConverter> {
    log->builds.push_back(from);
    log->events.push_back("build");
    for (const AudioFormat& refused : log->refuse) {
      if (refused == from) return nullptr;
    }
    return std::make_shared<FakeConverter>(log);
  };
}

// Owns the bytes of a buffer of `frames` zero frames in `format`.
struct TestBuffer {
  TestBuffer(AudioFormat format, size_t frames)
      : bytes(frames * format.channels * bytesPerSample(format.type)),
        buffer{format, std::span<const std::byte>(bytes)} {}
  std::vector<std::byte> bytes;
  PcmBuffer buffer;
};

constexpr AudioFormat kStereoFloat44{SampleType::float32, 44100, 2};
constexpr AudioFormat kMonoFloat44{SampleType::float32, 44100, 1};
constexpr AudioFormat kStereoFloat48{SampleType::float32, 48000, 2};
constexpr AudioFormat kMonoS16At48{SampleType::s16, 48000, 1};

class ToTargetTest : public ::testing::Test {
 protected:
  std::shared_ptr<FakeConverterLog> log = std::make_shared<FakeConverterLog>();
  ToTarget converter{recordingTargetFormat(),
                     [this](double oldRate, double newRate) {
                       log->events.push_back("rate " + std::to_string(int(oldRate)) + "->" +
                                             std::to_string(int(newRate)));
                     },
                     fakeFactory(log)};
};

TEST(OutputCapacity, FollowsTheRatioPlusAFixedMargin) {
  EXPECT_EQ(outputCapacity(48000, 44100, 4096), 5482u);
  EXPECT_EQ(outputCapacity(48000, 48000, 4096), 5120u);
  EXPECT_EQ(outputCapacity(48000, 96000, 4096), 2048u + 1024u);
  EXPECT_EQ(outputCapacity(48000, 44100, 1), 1025u);  // 1.088 truncated, not rounded up
  EXPECT_EQ(outputCapacity(48000, 44100, 0), 1024u);
}

TEST(OutputCapacityDeathTest, ImpossibleCountsStopTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(outputCapacity(48000, 0, 4096), "");                   // infinite
  EXPECT_DEATH(outputCapacity(48000, -48000, 4096), "");              // -4096
  EXPECT_DEATH(outputCapacity(48000, 48000, uint64_t{1} << 32), "");  // 2^32
  EXPECT_DEATH(outputCapacity(48000, 48000, 0xFFFFFFFFu), "");        // + 1024 overflows
}

TEST_F(ToTargetTest, TheFirstBufferBuildsTheConverterWithoutARateChange) {
  TestBuffer in(kStereoFloat44, 4096);
  auto out = converter.convert(in.buffer);
  ASSERT_TRUE(out);
  EXPECT_EQ(out->size(), 4096u);
  EXPECT_EQ(log->events, std::vector<std::string>{"build"});
  ASSERT_EQ(log->builds.size(), 1u);
  EXPECT_EQ(log->builds[0], kStereoFloat44);
  EXPECT_EQ(log->capacities, std::vector<uint32_t>{5482});
}

TEST_F(ToTargetTest, TheConverterIsKeptWhileTheFormatStaysTheSame) {
  TestBuffer in(kStereoFloat44, 100);
  auto first = converter.convert(in.buffer);
  auto second = converter.convert(in.buffer);
  ASSERT_TRUE(first && second);
  EXPECT_EQ(log->builds.size(), 1u);
  EXPECT_EQ(second->front(), 100);  // the same converter, carrying on
}

TEST_F(ToTargetTest, ANewRateIsReportedOnceBeforeItsFirstBlock) {
  TestBuffer at44(kStereoFloat44, 441);
  TestBuffer at48(kStereoFloat48, 480);
  ASSERT_TRUE(converter.convert(at44.buffer));
  ASSERT_TRUE(converter.convert(at44.buffer));
  log->events.push_back("block");
  auto out = converter.convert(at48.buffer);
  ASSERT_TRUE(out);
  EXPECT_EQ(out->front(), 0);  // a fresh converter for the new format
  log->events.push_back("block");
  ASSERT_TRUE(converter.convert(at48.buffer));
  EXPECT_EQ(log->events,
            (std::vector<std::string>{"build", "block", "rate 44100->48000", "build", "block"}));
  EXPECT_EQ(log->capacities.back(), 480u + 1024u);
}

TEST_F(ToTargetTest, AChannelChangeAtTheSameRateRebuildsSilently) {
  TestBuffer stereo(kStereoFloat44, 10);
  TestBuffer mono(kMonoFloat44, 10);
  TestBuffer s16(AudioFormat{SampleType::s16, 44100, 1}, 10);
  ASSERT_TRUE(converter.convert(stereo.buffer));
  ASSERT_TRUE(converter.convert(mono.buffer));
  ASSERT_TRUE(converter.convert(s16.buffer));
  EXPECT_EQ(log->events, (std::vector<std::string>{"build", "build", "build"}));
}

TEST_F(ToTargetTest, AnEmptyBufferReturnsNothingAndIsNotAFormatChange) {
  TestBuffer stereo(kStereoFloat44, 10);
  TestBuffer empty48(kStereoFloat48, 0);
  EXPECT_FALSE(converter.convert(empty48.buffer));
  EXPECT_TRUE(log->events.empty());
  ASSERT_TRUE(converter.convert(stereo.buffer));
  EXPECT_FALSE(converter.convert(empty48.buffer));
  ASSERT_TRUE(converter.convert(stereo.buffer));
  EXPECT_EQ(log->events, std::vector<std::string>{"build"});
  EXPECT_EQ(log->capacities.size(), 2u);  // the empty buffers never reached the converter
}

TEST(ToTarget, AnEmptyBufferTakesNoLock) {
  // onRateChange runs with the converter's lock held: an empty buffer converted from another
  // thread meanwhile must come back without waiting for it.
  auto log = std::make_shared<FakeConverterLog>();
  ToTarget* self = nullptr;
  TestBuffer empty(kStereoFloat44, 0);
  std::future<std::optional<Samples>> call;  // outlives the callback, which must not wait on it
  bool returned = false;
  ToTarget converter(
      recordingTargetFormat(),
      [&](double, double) {
        call = std::async(std::launch::async, [&] { return self->convert(empty.buffer); });
        returned = call.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
      },
      fakeFactory(log));
  self = &converter;
  TestBuffer at44(kStereoFloat44, 10);
  TestBuffer at48(kStereoFloat48, 10);
  ASSERT_TRUE(converter.convert(at44.buffer));
  ASSERT_TRUE(converter.convert(at48.buffer));
  EXPECT_TRUE(returned) << "an empty buffer waited for the converter's lock";
  EXPECT_FALSE(call.get());
}

TEST_F(ToTargetTest, AFrameShortOfBytesCountsAsEmpty) {
  std::vector<std::byte> threeBytes(3);
  EXPECT_FALSE(converter.convert(PcmBuffer{kStereoFloat44, threeBytes}));
  EXPECT_FALSE(converter.convert(PcmBuffer{AudioFormat{SampleType::s16, 44100, 0}, threeBytes}));
  EXPECT_TRUE(log->events.empty());
}

TEST_F(ToTargetTest, InputAtTheTargetFormatStillPassesThroughTheConverter) {
  TestBuffer in(kMonoS16At48, 4096);
  auto out = converter.convert(in.buffer);
  ASSERT_TRUE(out);
  EXPECT_EQ(log->builds.size(), 1u);
  EXPECT_EQ(log->capacities, std::vector<uint32_t>{5120});
}

TEST_F(ToTargetTest, AFormatThatCannotBeConvertedGivesNothingUntilTheFormatChanges) {
  log->refuse.push_back(kStereoFloat44);
  TestBuffer refused(kStereoFloat44, 100);
  TestBuffer fine(kStereoFloat48, 100);
  StdoutCapture capture;
  EXPECT_FALSE(converter.convert(refused.buffer));
  EXPECT_FALSE(converter.convert(refused.buffer));
  EXPECT_FALSE(converter.convert(refused.buffer));
  EXPECT_EQ(log->builds.size(), 1u);  // not retried for the same format
  EXPECT_TRUE(converter.convert(fine.buffer));
  EXPECT_EQ(capture.text(), "");
  EXPECT_EQ(log->events, (std::vector<std::string>{"build", "rate 44100->48000", "build"}));
}

TEST_F(ToTargetTest, TheInputGivesTheBufferOnceAndThenNoDataNow) {
  TestBuffer in(kStereoFloat44, 100);
  ASSERT_TRUE(converter.convert(in.buffer));
  ASSERT_TRUE(converter.convert(in.buffer));
  const std::vector<InputStatus> once{InputStatus::haveData, InputStatus::noDataNow,
                                      InputStatus::noDataNow};
  EXPECT_EQ(log->pulls, (std::vector<std::vector<InputStatus>>{once, once}));
}

TEST_F(ToTargetTest, AConversionErrorWarnsAndTheNextBufferConvertsAfresh) {
  TestBuffer in(kStereoFloat44, 100);
  log->failWith = "the resampler fell over";
  StdoutCapture capture;
  EXPECT_FALSE(converter.convert(in.buffer));
  auto next = converter.convert(in.buffer);
  EXPECT_EQ(capture.text(),
            "{\"type\":\"record-warning\",\"message\":\"audio conversion failed: the resampler "
            "fell over\"}\n");
  ASSERT_TRUE(next);
  EXPECT_EQ(next->size(), 100u);
  EXPECT_EQ(log->builds.size(), 1u);  // the converter is kept
}

TEST_F(ToTargetTest, AnEmptyOutputGivesNothing) {
  log->produceNothing = true;
  TestBuffer in(kStereoFloat44, 100);
  StdoutCapture capture;
  EXPECT_FALSE(converter.convert(in.buffer));
  EXPECT_EQ(capture.text(), "");
}

TEST(ToTargetDeathTest, TheTargetMustBeSixteenBitMono) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(ToTarget(AudioFormat{SampleType::float32, 48000, 1}, nullptr, makeSoxrConverter),
               "");
  EXPECT_DEATH(ToTarget(AudioFormat{SampleType::s16, 48000, 2}, nullptr, makeSoxrConverter), "");
  EXPECT_DEATH(ToTarget(AudioFormat{SampleType::s16, 0, 1}, nullptr, makeSoxrConverter), "");
}

}  // namespace
}  // namespace tallowbrook
