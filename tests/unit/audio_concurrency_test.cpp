// The recording building blocks used the way a recording uses them: source threads
// converting and pushing (or appending) while a timer thread drains, meters, prints and
// rewrites the header. Run under ThreadSanitizer (scripts/test --tsan) to check the locking.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <functional>
#include <memory>
#include <numbers>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "audio/meter.h"
#include "audio/mixer.h"
#include "audio/soxr_converter.h"
#include "audio/to_target.h"
#include "audio/wav_writer.h"
#include "audio_test_support.h"
#include "base/out.h"
#include "fake_wav_file.h"
#include "stdout_capture.h"

namespace tallowbrook {
namespace {

using audio_test::le32;
using audio_test::readFile;
using audio_test::TempDir;

// `frames` frames of a 440 Hz tone in every channel of `format` (float32 or s16).
std::vector<std::byte> tone(const AudioFormat& format, size_t frames, size_t phase) {
  std::vector<std::byte> bytes;
  for (size_t f = 0; f < frames; ++f) {
    const double v =
        0.3 * std::sin(2 * std::numbers::pi * 440 * double(f + phase) / format.sampleRate);
    for (uint32_t c = 0; c < format.channels; ++c) {
      if (format.type == SampleType::float32) {
        const float x = float(v);
        const auto* p = reinterpret_cast<const std::byte*>(&x);
        bytes.insert(bytes.end(), p, p + 4);
      } else {
        const auto x = int16_t(std::lround(v * 32767));
        const auto* p = reinterpret_cast<const std::byte*>(&x);
        bytes.insert(bytes.end(), p, p + 2);
      }
    }
  }
  return bytes;
}

// A source thread: `buffers` buffers of 4096 frames through `converter`, each result handed
// to `sink`; switches from `first` to `second` halfway.
void runSource(ToTarget& converter, AudioFormat first, AudioFormat second, int buffers,
               const std::function<void(const Samples&)>& sink) {
  for (int i = 0; i < buffers; ++i) {
    const AudioFormat format = i < buffers / 2 ? first : second;
    const std::vector<std::byte> bytes = tone(format, 4096, size_t(i) * 4096);
    if (auto block = converter.convert(PcmBuffer{format, bytes})) sink(*block);
  }
}

TEST(AudioConcurrency, SourcesAndTheTimerShareWriterMeterAndMixer) {
  TempDir dir;
  const std::string path = dir.file("both.wav");
  auto writer = std::make_shared<WavWriter>(path, 48000, 1);
  auto meter = std::make_shared<Meter>();
  auto mixer = std::make_shared<Mixer>();
  std::atomic<int> rateChanges{0};
  auto onRateChange = [&](double, double) { ++rateChanges; };
  ToTarget micConverter(recordingTargetFormat(), onRateChange, makeSoxrConverter);
  ToTarget systemConverter(recordingTargetFormat(), onRateChange, makeSoxrConverter);

  StdoutCapture capture;
  std::atomic<int> sourcesRunning{2};
  std::thread mic([&] {
    runSource(micConverter, {SampleType::float32, 44100, 2}, {SampleType::float32, 48000, 1}, 40,
              [&](const Samples& s) { mixer->push(s, MixerQueue::mic); });
    --sourcesRunning;
  });
  std::thread system([&] {
    runSource(systemConverter, {SampleType::s16, 48000, 2}, {SampleType::s16, 48000, 2}, 40,
              [&](const Samples& s) { mixer->push(s, MixerQueue::system); });
    --sourcesRunning;
  });

  // The timer: drain, meter, append, report levels, rewrite the header now and then.
  int64_t drained = 0;
  int ticks = 0;
  std::thread timer([&] {
    while (sourcesRunning > 0) {
      Samples block = mixer->drain(2400);
      drained += int64_t(block.size());
      meter->add(block);
      writer->append(block);
      const Level level = meter->take();
      int64_t frames;
      {
        auto held = writer->hold();
        frames = writer->frames(held);
        if (++ticks % 5 == 0) writer->writeHeaderLocked(held);
      }
      mixer->takeDropped();
      writeJsonLine(Json{{"type", "level"}, {"rms", level.rms}, {"frames", frames}});
      std::this_thread::yield();
    }
  });
  mic.join();
  system.join();
  timer.join();

  // The stop: everything still queued, then the final header.
  Samples rest = mixer->drain(mixer->longestQueue());
  drained += int64_t(rest.size());
  meter->add(rest);
  writer->append(rest);
  writer->finish();

  EXPECT_EQ(rateChanges, 1);  // the microphone's move from 44100 to 48000 Hz
  EXPECT_EQ(writer->frames(writer->hold()), drained);
  const std::string bytes = readFile(path);
  EXPECT_EQ(bytes.size(), 44u + 2 * size_t(drained));
  EXPECT_EQ(le32(bytes, 40), 2 * uint32_t(drained));
  const std::string out = capture.text();
  EXPECT_EQ(size_t(std::count(out.begin(), out.end(), '\n')), size_t(ticks));
}

TEST(AudioConcurrency, ASingleSourceAppendsWhileTheTimerRewritesTheHeader) {
  TempDir dir;
  const std::string path = dir.file("mic.wav");
  auto writer = std::make_shared<WavWriter>(path, 48000, 1);
  auto meter = std::make_shared<Meter>();
  ToTarget converter(recordingTargetFormat(), nullptr, makeSoxrConverter);
  std::atomic<bool> running{true};
  std::atomic<int64_t> delivered{0};

  std::thread source([&] {
    runSource(converter, {SampleType::float32, 44100, 2}, {SampleType::float32, 44100, 2}, 60,
              [&](const Samples& s) {
                meter->add(s);
                writer->append(s);
                delivered += int64_t(s.size());
              });
    running = false;
  });
  int rewrites = 0;
  std::thread timer([&] {
    while (running) {
      meter->take();
      auto held = writer->hold();
      writer->writeHeaderLocked(held);
      ++rewrites;
      held.unlock();
      std::this_thread::yield();
    }
  });
  source.join();
  timer.join();
  writer->finish();

  EXPECT_GT(rewrites, 0);
  const std::string bytes = readFile(path);
  EXPECT_EQ(bytes.size(), 44u + 2 * size_t(delivered.load()));
  EXPECT_EQ(le32(bytes, 40), 2 * uint32_t(delivered.load()));
  // Appends never landed in the header: the data are the converted tone, in order.
  const std::vector<int16_t> samples = audio_test::samplesFrom(bytes, 44);
  int16_t peak = 0;
  for (int16_t s : samples) peak = std::max<int16_t>(peak, int16_t(std::abs(s)));
  EXPECT_NEAR(peak, 0.3 * 32767, 0.3 * 32767 * 0.02);
}

TEST(AudioConcurrency, TwoThreadsMayShareOneConverterAcrossFormatChanges) {
  std::atomic<int> rateChanges{0};
  ToTarget converter(
      recordingTargetFormat(), [&](double, double) { ++rateChanges; }, makeSoxrConverter);
  std::atomic<int64_t> produced{0};
  auto feed = [&](AudioFormat format) {
    for (int i = 0; i < 30; ++i) {
      const std::vector<std::byte> bytes = tone(format, 1024, size_t(i) * 1024);
      if (auto block = converter.convert(PcmBuffer{format, bytes}))
        produced += int64_t(block->size());
    }
  };
  std::thread a(feed, AudioFormat{SampleType::float32, 44100, 2});
  std::thread b(feed, AudioFormat{SampleType::s16, 32000, 1});
  a.join();
  b.join();
  EXPECT_GT(produced, 0);
  EXPECT_LE(rateChanges, 59);  // at most one per buffer after the first
}

TEST(AudioConcurrency, WriteFailureWarningsAndLevelLinesNeverInterleave) {
  // On a disk that fills at 2044 bytes: appends fail and their reporter prints a warning, as a
  // recording's does, while another thread prints level lines and a third rewrites the header.
  auto disk = std::make_shared<audio_test::FakeDisk>();
  std::string text;
  {
    StdoutCapture capture;
    auto writer = std::make_shared<WavWriter>(
        std::make_unique<audio_test::FakeWavFile>(disk, 2044), "full.wav", 48000, 1,
        [](const std::string& reason) {
          writeJsonLine(Json{{"type", "record-warning"},
                             {"message", "a write to the recording failed: " + reason}});
        });
    const std::vector<int16_t> block(100, 1000);
    std::thread source([&] {
      for (int i = 0; i < 50; ++i) writer->append(block);  // 10 fit
    });
    std::thread printer([] {
      for (int i = 0; i < 100; ++i) writeJsonLine(Json{{"type", "level"}, {"i", i}});
    });
    std::thread timer([&] {
      for (int i = 0; i < 100; ++i) {
        auto held = writer->hold();
        writer->writeHeaderLocked(held);
      }
    });
    source.join();
    printer.join();
    timer.join();
    writer->finish();
    text = capture.text();
  }

  size_t levels = 0, warnings = 0, start = 0;
  for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
    const Json line = Json::parse(text.substr(start, end - start));
    if (line["type"] == "level") ++levels;
    if (line["type"] == "record-warning" &&
        line["message"] == "a write to the recording failed: No space left on device") {
      ++warnings;
    }
  }
  EXPECT_EQ(start, text.size());
  EXPECT_EQ(levels, 100u);
  EXPECT_EQ(warnings, 40u);
  const std::string bytes = disk->read();
  EXPECT_EQ(bytes.size(), 2044u);
  EXPECT_EQ(le32(bytes, 40), 2000u);
}

}  // namespace
}  // namespace tallowbrook
