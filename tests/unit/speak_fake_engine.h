// A scripted speech engine for the speak command's unit tests: plays back a list of word
// ranges and audio buffers on a thread of its own, as a synthesiser does.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <variant>
#include <vector>

#include "speech/speech_engine.h"

namespace tallowbrook::Speak {

struct FakeRange {
  int64_t loc;
  int64_t len;
};

// An owned audio buffer; `bytes` holds its samples.
struct FakeBuffer {
  bool isPcm = true;
  SampleFormat format = SampleFormat::int16;
  double sampleRate = 22050;
  int channels = 1;
  int64_t frames = 0;
  std::vector<unsigned char> bytes;

  static FakeBuffer int16(std::vector<int16_t> samples, double rate = 22050, int channels = 1) {
    FakeBuffer b;
    b.sampleRate = rate;
    b.channels = channels;
    b.frames = static_cast<int64_t>(samples.size()) / channels;
    const auto* p = reinterpret_cast<const unsigned char*>(samples.data());
    b.bytes.assign(p, p + samples.size() * sizeof(int16_t));
    return b;
  }
  static FakeBuffer float32(std::vector<float> samples, double rate = 22050, int channels = 1) {
    FakeBuffer b;
    b.format = SampleFormat::float32;
    b.sampleRate = rate;
    b.channels = channels;
    b.frames = static_cast<int64_t>(samples.size()) / channels;
    const auto* p = reinterpret_cast<const unsigned char*>(samples.data());
    b.bytes.assign(p, p + samples.size() * sizeof(float));
    return b;
  }
  static FakeBuffer end(double rate = 22050) {
    FakeBuffer b;
    b.sampleRate = rate;
    return b;
  }
  AudioBuffer view() const {
    return AudioBuffer{isPcm,    format, sampleRate,
                       channels, frames, bytes.empty() ? nullptr : bytes.data()};
  }
};

using FakeStep = std::variant<FakeRange, FakeBuffer>;

enum class FakePlaybackEnd { finish, cancel, fail, never };

class FakeEngine : public SpeechEngine {
 public:
  std::vector<Voice> installed{
      Voice{"gmw/en", "English (Great Britain)", "en-GB", 1, 1, false, false},
      Voice{"gmw/de", "German", "de", 1, 2, false, false}};
  std::vector<FakeStep> script;  // what write() delivers, in order
  FakePlaybackEnd playbackEnd = FakePlaybackEnd::finish;

  std::optional<Utterance> written;  // what write() or speak() was given
  std::optional<Utterance> spoken;
  int voiceLookups = 0;

  ~FakeEngine() override {
    if (worker_.joinable()) worker_.join();
  }

  std::vector<Voice> voices() override {
    ++voiceLookups;
    return installed;
  }

  void write(const Utterance& utterance, std::shared_ptr<SynthesisDelegate> delegate) override {
    written = utterance;
    worker_ = std::thread([steps = script, delegate] {
      for (const FakeStep& step : steps) {
        if (const auto* range = std::get_if<FakeRange>(&step)) {
          delegate->willSpeakRange(range->loc, range->len);
        } else {
          delegate->didReceiveBuffer(std::get<FakeBuffer>(step).view());
        }
      }
    });
  }

  void speak(const Utterance& utterance, std::shared_ptr<PlaybackDelegate> delegate) override {
    spoken = utterance;
    worker_ = std::thread([end = playbackEnd, delegate] {
      if (end == FakePlaybackEnd::finish) delegate->didFinish();
      if (end == FakePlaybackEnd::cancel) delegate->didCancel();
      if (end == FakePlaybackEnd::fail) delegate->didFail("Connection refused");
    });
  }

 private:
  std::thread worker_;
};

}  // namespace tallowbrook::Speak
