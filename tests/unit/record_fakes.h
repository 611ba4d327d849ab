// Fakes for the recording tests: a clock moved by hand, a capture engine and a system-audio
// service driven by the test, a platform handing them out, and a recorder of warnings.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "audio/soxr_converter.h"
#include "record/clock.h"
#include "record/input_engine.h"
#include "record/mic_source.h"
#include "record/record_platform.h"
#include "record/system_capture.h"

namespace record_test {

using namespace tallowbrook;

class FakeClock final : public Clock {
 public:
  uint64_t nowNanos() const override { return now.load(); }
  void advance(uint64_t nanos) { now += nanos; }
  std::atomic<uint64_t> now{1'000'000'000'000ULL};
};

// Buffers of 48000 Hz mono s16 silence at a given length.
inline std::vector<std::byte> silentBytes(size_t frames) {
  return std::vector<std::byte>(frames * 2, std::byte{0});
}

class FakeEngine final : public InputEngine {
 public:
  struct State {
    std::mutex lock;
    std::map<std::string, uint32_t> devices;  // UID -> id
    int32_t selectStatus = 0;
    std::optional<uint32_t> selected;
    AudioFormat format{SampleType::s16, 48000.0, 1};
    TapBlock tap;
    bool running = false;
    int starts = 0;
    int stops = 0;
    std::optional<std::string> startError;
    std::function<void()> change;
    std::optional<bool> blocked;
    int lidQueries = 0;
  };

  explicit FakeEngine(std::shared_ptr<State> state) : state_(std::move(state)) {}

  std::optional<uint32_t> deviceId(const std::string& uid) override {
    std::lock_guard<std::mutex> held(state_->lock);
    auto found = state_->devices.find(uid);
    if (found == state_->devices.end()) return std::nullopt;
    return found->second;
  }
  int32_t select(uint32_t id) override {
    std::lock_guard<std::mutex> held(state_->lock);
    if (state_->selectStatus == 0) state_->selected = id;
    return state_->selectStatus;
  }
  AudioFormat inputFormat() override {
    std::lock_guard<std::mutex> held(state_->lock);
    return state_->format;
  }
  void installTap(const AudioFormat&, TapBlock block) override {
    std::lock_guard<std::mutex> held(state_->lock);
    state_->tap = std::move(block);
  }
  void removeTap() override {
    std::lock_guard<std::mutex> held(state_->lock);
    state_->tap = nullptr;
  }
  void start() override {
    std::lock_guard<std::mutex> held(state_->lock);
    ++state_->starts;
    if (state_->startError) throw std::runtime_error(*state_->startError);
    state_->running = true;
  }
  void stop() override {
    std::lock_guard<std::mutex> held(state_->lock);
    ++state_->stops;
    state_->running = false;
  }
  void setConfigurationChangeHandler(std::function<void()> handler) override {
    std::lock_guard<std::mutex> held(state_->lock);
    state_->change = std::move(handler);
  }
  std::optional<bool> lidBlocked() override {
    std::lock_guard<std::mutex> held(state_->lock);
    ++state_->lidQueries;
    return state_->blocked;
  }

 private:
  std::shared_ptr<State> state_;
};

// Delivers `frames` frames of silence to the installed tap, if the engine runs.
inline void deliver(FakeEngine::State& state, size_t frames) {
  TapBlock tap;
  AudioFormat format;
  {
    std::lock_guard<std::mutex> held(state.lock);
    if (!state.running) return;
    tap = state.tap;
    format = state.format;
  }
  const std::vector<std::byte> bytes(frames * bytesPerSample(format.type) * format.channels,
                                     std::byte{0});
  if (tap) tap(PcmBuffer{format, bytes});
}

inline void announceChange(FakeEngine::State& state) {
  std::function<void()> change;
  {
    std::lock_guard<std::mutex> held(state.lock);
    change = state.change;
  }
  if (change) change();
}

class FakeSystemCapture final : public SystemCapture {
 public:
  struct State {
    std::mutex lock;
    std::condition_variable changed;
    bool permitted = true;
    int serviceCalls = 0;  // start and stop
    std::optional<std::string> startError;
    bool hangStart = false;  // start blocks until `release`
    bool hangStop = false;
    bool release = false;
    TapBlock deliver;
    std::function<void(const std::string&)> stopped;
    int stops = 0;
  };
  explicit FakeSystemCapture(std::shared_ptr<State> state) : state_(std::move(state)) {}

  bool preflight() override {
    std::lock_guard<std::mutex> held(state_->lock);
    return state_->permitted;
  }
  void start(TapBlock deliver, std::function<void(const std::string&)> stopped) override {
    std::unique_lock<std::mutex> held(state_->lock);
    ++state_->serviceCalls;
    if (state_->hangStart) state_->changed.wait(held, [this] { return state_->release; });
    if (state_->startError) throw std::runtime_error(*state_->startError);
    state_->deliver = std::move(deliver);
    state_->stopped = std::move(stopped);
  }
  void stop() override {
    std::unique_lock<std::mutex> held(state_->lock);
    ++state_->serviceCalls;
    ++state_->stops;
    if (state_->hangStop) state_->changed.wait(held, [this] { return state_->release; });
    state_->deliver = nullptr;
  }

 private:
  std::shared_ptr<State> state_;
};

inline void releaseHangs(FakeSystemCapture::State& state) {
  {
    std::lock_guard<std::mutex> held(state.lock);
    state.release = true;
  }
  state.changed.notify_all();
}

class FakePlatform final : public RecordPlatform {
 public:
  std::vector<InputDevice> inputDevices() override { return devices; }
  ConverterFactory converterFactory() override { return makeSoxrConverter; }
  MicrophoneAuthorization microphoneAuthorization() override {
    ++authorizationReads;
    return authorization;
  }
  std::unique_ptr<InputEngine> makeInputEngine(DeliveryPeriod period) override {
    enginePeriod = period;
    return std::make_unique<FakeEngine>(engine);
  }
  std::unique_ptr<SystemCapture> makeSystemCapture(DeliveryPeriod period) override {
    systemPeriod = period;
    return std::make_unique<FakeSystemCapture>(system);
  }
  const Clock& clock() override { return fakeClock; }

  std::vector<InputDevice> devices;
  DeliveryPeriod enginePeriod{0};  // what the last engine made was asked for
  DeliveryPeriod systemPeriod{0};  // what the last system capture made was asked for
  MicrophoneAuthorization authorization = MicrophoneAuthorization::authorized;
  std::atomic<int> authorizationReads{0};
  std::shared_ptr<FakeEngine::State> engine = std::make_shared<FakeEngine::State>();
  std::shared_ptr<FakeSystemCapture::State> system = std::make_shared<FakeSystemCapture::State>();
  FakeClock fakeClock;
};

// Collects warnings as a source hands them out.
struct Warnings {
  std::mutex lock;
  std::vector<std::pair<std::string, std::optional<int64_t>>> list;

  WarningSink sink() {
    return [this](const std::string& message, std::optional<int64_t> gap) {
      std::lock_guard<std::mutex> held(lock);
      list.emplace_back(message, gap);
    };
  }
  std::vector<std::pair<std::string, std::optional<int64_t>>> take() {
    std::lock_guard<std::mutex> held(lock);
    return std::exchange(list, {});
  }
};

}  // namespace record_test
