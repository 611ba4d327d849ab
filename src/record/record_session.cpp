#include "record/record_session.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <exception>
#include <semaphore>
#include <thread>
#include <utility>

#include "base/out.h"
#include "record/box.h"
#include "record/record_error.h"

namespace tallowbrook {
namespace {

constexpr int64_t kSampleRate = 48000;
// The mix starts once each queue holds this much audio (40 ms), so that the sources'
// delivery granularity and scheduling jitter never leave a queue short; it keeps that level.
constexpr int64_t kMixCushion = kSampleRate / 25;
// A source that has delivered less than the cushion this long after the timers began is late:
// the mix starts without waiting for it, and pads it with silence until it comes.
constexpr uint64_t kMixStartWaitNanos = 500'000'000;
// A tick that finds a queue short waits for it rather than padding at once: the sources'
// delivery threads, or the sound server itself, may have been held up (a busy machine; gaps of
// 650 ms were seen under load) while the audio waits in the server. Only a source more than
// this far behind the clock (1 s) is padded: a source that stopped delivering.
constexpr int64_t kMixMaxLag = kSampleRate;

void printEvent(const Json& event) {
  writeJsonLine(event);
}

// The rate-change warning; holds no reference to the session.
void printRateChange(double oldRate, double newRate) {
  printEvent(Json{{"type", "record-warning"},
                  {"message", "the input moved from " + std::to_string(int64_t(oldRate)) +
                                  " Hz to " + std::to_string(int64_t(newRate)) +
                                  " Hz; it is being converted to 48000 Hz so the file stays "
                                  "one recording."}});
}

// A failed write to the recording is a warning; the recording goes on.
void printWriteFailure(const std::string& reason) {
  printEvent(
      Json{{"type", "record-warning"}, {"message", "a write to the recording failed: " + reason}});
}

std::unique_ptr<ToTarget> makeConverter(RecordPlatform& platform) {
  return std::make_unique<ToTarget>(recordingTargetFormat(), printRateChange,
                                    platform.converterFactory());
}

// The outcome of an asynchronous source operation: its error, if any, and a semaphore that it
// releases when done. Shared with the operation, which may finish after its waiter gave up.
struct AsyncOutcome {
  Box<std::exception_ptr> error;
  std::binary_semaphore done{0};
};

}  // namespace

DeliveryPeriod deliveryPeriod(RecordInput input) {
  return DeliveryPeriod(input == RecordInput::both ? 50 : 10);
}

std::vector<int64_t> silenceBlocks(int64_t silenceMs, int64_t channels) {
  std::vector<int64_t> blocks;
  if (silenceMs * kSampleRate < 1000) return blocks;
  int64_t remaining = silenceMs * kSampleRate / 1000 * channels;
  while (remaining > 0) {
    blocks.push_back(std::min<int64_t>(remaining, kSampleRate));
    remaining -= blocks.back();
  }
  return blocks;
}

std::shared_ptr<RecordSession> RecordSession::create(const std::string& path, RecordInput input,
                                                     RecordPlatform& platform, Timing timing) {
  return std::shared_ptr<RecordSession>(new RecordSession(path, input, platform, timing));
}

RecordSession::RecordSession(const std::string& path, RecordInput input, RecordPlatform& platform,
                             Timing timing)
    : platform_(platform),
      clock_(platform.clock()),
      timing_(timing),
      writer_(std::make_unique<WavWriter>(path, kSampleRate, 1, printWriteFailure)),
      input_(input),
      mixLastTick_(clock_.nowNanos()) {}

RecordSession::~RecordSession() {
  if (levelTimer_) timerQueue_.cancelTimer(*levelTimer_);
  if (mixTimer_) timerQueue_.cancelTimer(*mixTimer_);
}

void RecordSession::start(const std::optional<std::string>& deviceUID) {
  if (input_ == RecordInput::both) mixer_ = std::make_unique<Mixer>();
  if (input_ == RecordInput::mic || input_ == RecordInput::both) {
    switch (platform_.microphoneAuthorization()) {
      case MicrophoneAuthorization::restricted:
      case MicrophoneAuthorization::denied:
        throw RecordError{
            "Microphone access is off. Open System Settings → Privacy & Security → Microphone, "
            "switch Tallowbrook on, then try again."};
      case MicrophoneAuthorization::notDetermined:
        throw RecordError{
            "Microphone access has not been asked for yet. Ask for it before starting a "
            "recording."};
      case MicrophoneAuthorization::noSoundServer:
        throw RecordError{kNoSoundServerText};
      case MicrophoneAuthorization::authorized:
        break;
    }
    auto mic = MicSource::create(platform_.makeInputEngine(deliveryPeriod(input_)),
                                 makeConverter(platform_), micSink(), warningSink(), clock_);
    mic->start(deviceUID);  // its error ends the start
    mic_ = std::move(mic);
  }
  if (input_ == RecordInput::system || input_ == RecordInput::both) {
    auto source =
        std::make_shared<SystemAudioSource>(platform_.makeSystemCapture(deliveryPeriod(input_)),
                                            makeConverter(platform_), systemSink(), warningSink());
    auto outcome = std::make_shared<AsyncOutcome>();
    std::thread([source, outcome] {
      try {
        source->start();
      } catch (...) {  // whatever it is travels to the starting thread, which rethrows it
        outcome->error.store(std::current_exception());
      }
      outcome->done.release();
    }).detach();
    if (!outcome->done.try_acquire_for(timing_.systemStartWait)) {
      outcome->error.store(std::make_exception_ptr(
          RecordError{std::string(kScreenRecordingOffText) +
                      " (ScreenCaptureKit did not answer within fifteen seconds.)"}));
    }
    if (std::optional<std::exception_ptr> error = outcome->error.read(); error && *error) {
      if (mic_) mic_->stop();
      writer_->finish();
      std::rethrow_exception(*error);
    }
    systemAudio_ = std::move(source);
  }
  printEvent(Json{{"type", "record-started"},
                  {"path", writer_->path()},
                  {"input", recordInputText(input_)},
                  {"sampleRate", kSampleRate},
                  {"channels", 1},
                  {"format", "wav-pcm-s16le"},
                  {"bytesPerSecond", kSampleRate * 2}});
  if (mic_) mic_->activateWarnings();
  startTimers();
}

SampleSink RecordSession::micSink() {
  std::weak_ptr<RecordSession> weak = weak_from_this();
  return [weak](Samples samples) {
    if (auto self = weak.lock()) self->sinkSamples(std::move(samples), true);
  };
}

SampleSink RecordSession::systemSink() {
  std::weak_ptr<RecordSession> weak = weak_from_this();
  return [weak](Samples samples) {
    if (auto self = weak.lock()) self->sinkSamples(std::move(samples), false);
  };
}

WarningSink RecordSession::warningSink() {
  std::weak_ptr<RecordSession> weak = weak_from_this();
  return [weak](const std::string& message, std::optional<int64_t> silenceMs) {
    if (auto self = weak.lock()) {
      self->warning(message, silenceMs);
    } else {
      printEvent(Json{{"type", "record-warning"}, {"message", message}});
    }
  };
}

void RecordSession::sinkSamples(Samples samples, bool fromMic) {
  bool paused;
  {
    std::lock_guard<std::mutex> held(lock_);
    paused = paused_;
  }
  if (paused) return;
  if (mixer_) {
    const MixerQueue queue = fromMic ? MixerQueue::mic : MixerQueue::system;
    const Samples followed = followers_[fromMic ? 0 : 1].process(samples);
    int64_t prime = 0;
    {
      std::lock_guard<std::mutex> held(lock_);
      bool& starved = starved_[fromMic ? 0 : 1];
      if (starved) {
        // A source that ran dry starts again behind silence for the time it was missing (what
        // the mix still owes, and what the next tick will ask) and the cushion, so that its
        // audio lines up with the clock again and does not live at the edge of its queue.
        starved = false;
        const uint64_t sinceTick = clock_.nowNanos() - mixLastTick_;
        prime = mixTarget_ + mixOwed_ + int64_t(double(sinceTick) / 1e9 * double(kSampleRate));
      }
    }
    mixer_->prime(queue, prime);
    mixer_->push(followed, queue);
    return;
  }
  meter_.add(samples);
  writer_->append(samples);
}

void RecordSession::warning(const std::string& message, std::optional<int64_t> silenceMs) {
  Json line{{"type", "record-warning"}, {"message", message}};
  if (silenceMs && !mixer_) {
    const Samples zeros(size_t(kSampleRate), 0);
    for (int64_t count : silenceBlocks(*silenceMs, writer_->channels())) {
      writer_->append(std::span<const int16_t>(zeros.data(), size_t(count)));
    }
    line["silenceMs"] = *silenceMs;
  }
  printEvent(line);
}

void RecordSession::startTimers() {
  if (!timing_.runTimers) {
    if (mixer_) resetMix();
    return;
  }
  std::weak_ptr<RecordSession> weak = weak_from_this();
  // The mix counts time from just before the timers' common start, so the mix tick due with
  // the 50th level tick has written at least 5 s of frames when that tick rewrites the header.
  if (mixer_) resetMix();
  const auto start = std::chrono::steady_clock::now();  // both timers count from here
  levelTimer_ = timerQueue_.addTimer(
      std::chrono::milliseconds(100),
      [weak] {
        if (auto self = weak.lock()) self->tick();
      },
      start);
  if (mixer_) {
    mixTimer_ = timerQueue_.addTimer(
        std::chrono::milliseconds(50),
        [weak] {
          if (auto self = weak.lock()) self->mixTick();
        },
        start);
  }
}

int64_t RecordSession::elapsedMs() {
  const auto held = writer_->hold();
  return writer_->frames(held) * 1000 / kSampleRate;
}

void RecordSession::tick() {
  if (mic_) mic_->poll();
  const Level level = meter_.take();
  int64_t frames;
  {
    const auto held = writer_->hold();
    frames = writer_->frames(held);
  }
  bool paused;
  {
    std::lock_guard<std::mutex> held(lock_);
    paused = paused_;
  }
  printEvent(Json{{"type", "level"},
                  {"rms", level.rms},
                  {"peak", level.peak},
                  {"clipped", level.clipped},
                  {"frames", frames},
                  {"elapsedMs", frames * 1000 / kSampleRate},
                  {"paused", paused}});
  if (++headerFlushCountdown_ >= 50) {
    headerFlushCountdown_ = 0;
    const auto held = writer_->hold();
    writer_->writeHeaderLocked(held);
  }
}

void RecordSession::resetMix() {
  mixer_->reset();
  for (RateFollower& follower : followers_) follower.reset();
  std::lock_guard<std::mutex> held(lock_);
  mixLastTick_ = clock_.nowNanos();
  mixTimersStarted_ = mixLastTick_;
  mixRunning_ = false;
  mixTarget_ = 0;
  starved_[0] = starved_[1] = false;
}

std::optional<int64_t> RecordSession::startMixWhenReady(uint64_t now) {
  if (!mixer_) return std::nullopt;
  {
    std::lock_guard<std::mutex> held(lock_);
    if (mixRunning_) return -1;
  }
  const auto [mic, system] = mixer_->queued();
  const int64_t common = std::min(mic, system);
  const bool ready = common >= kMixCushion;
  {
    std::lock_guard<std::mutex> held(lock_);
    mixLastTick_ = now;
    mixCarry_ = 0;
    if (!ready && now - mixTimersStarted_ < kMixStartWaitNanos) return std::nullopt;
    mixTarget_ = kMixCushion;
    starved_[0] = mic == 0;
    starved_[1] = system == 0;
    mixRunning_ = true;
  }
  // Both sources start together: what one delivered before the other began is dropped, what
  // both hold beyond the cushion is written at once, and the mix counts from now. A late
  // source is padded from here on (and primed when it comes).
  mixer_->trimTo(ready ? common : kMixCushion);
  return ready ? common - kMixCushion : 0;
}

void RecordSession::mixTick() {
  const uint64_t now = clock_.nowNanos();
  const std::optional<int64_t> start = startMixWhenReady(now);
  if (!start) return;
  if (*start >= 0) {  // just started
    if (*start > 0) {
      const Samples block = mixer_->drain(*start);
      meter_.add(block);
      writer_->append(block);
    }
    return;
  }
  int64_t frames;
  double seconds;
  int64_t target;
  {
    std::lock_guard<std::mutex> held(lock_);
    const uint64_t elapsed = now - mixLastTick_;
    mixLastTick_ = now;
    if (paused_) {
      mixCarry_ = 0;
      mixOwed_ = 0;
      return;
    }
    const double exact = double(elapsed) / 1e9 * double(kSampleRate) + mixCarry_;
    if (!std::isfinite(exact) || exact >= 9.2e18 || exact <= -9.2e18) std::abort();
    frames = int64_t(exact) + mixOwed_;
    mixCarry_ = exact - double(int64_t(exact));
    seconds = double(elapsed) / 1e9;
    target = mixTarget_;
  }
  if (frames >= 1 && mixer_) {
    // Drain what both sources hold, up to what the clock says; leave the rest owed unless a
    // source is more than kMixMaxLag behind, which is padded.
    const auto [mic, system] = mixer_->queued();
    const int64_t take = std::min(frames, std::max(std::min(mic, system), frames - kMixMaxLag));
    {
      std::lock_guard<std::mutex> held(lock_);
      mixOwed_ = frames - take;
    }
    if (take < 1) return;
    DrainReport report;
    const Samples block = mixer_->drain(take, report);
    meter_.add(block);
    writer_->append(block);
    const bool dry[2] = {report.micShort, report.systemShort};
    const int64_t queued[2] = {report.micQueued, report.systemQueued};
    bool starved[2];
    {
      std::lock_guard<std::mutex> held(lock_);
      for (int k = 0; k < 2; ++k) {
        if (dry[k]) starved_[k] = true;
        starved[k] = starved_[k];
      }
    }
    for (int k = 0; k < 2; ++k) {
      if (starved[k]) {
        followers_[k].reset();  // its delivery stopped: what it learnt of its clock is stale
      } else {
        followers_[k].steer(queued[k], target, seconds);
      }
    }
    if (mixer_->takeDropped()) {
      printEvent(Json{{"type", "record-warning"},
                      {"message",
                       "one audio source ran more than five seconds ahead; the oldest of its "
                       "audio was dropped to keep the mix aligned."}});
    }
  }
}

void RecordSession::pause() {
  {
    std::lock_guard<std::mutex> held(lock_);
    if (paused_ || finished_) return;
    paused_ = true;
  }
  printEvent(Json{{"type", "record-paused"}, {"elapsedMs", elapsedMs()}});
}

void RecordSession::resume() {
  {
    std::lock_guard<std::mutex> held(lock_);
    if (!paused_ || finished_) return;
    paused_ = false;
    mixLastTick_ = clock_.nowNanos();
    mixCarry_ = 0;
    mixOwed_ = 0;
  }
  printEvent(Json{{"type", "record-resumed"}, {"elapsedMs", elapsedMs()}});
}

void RecordSession::stop() {
  {
    std::lock_guard<std::mutex> held(lock_);
    if (finished_) return;
    paused_ = true;
    finished_ = true;
  }
  if (levelTimer_) timerQueue_.cancelTimer(*levelTimer_);
  if (mixTimer_) timerQueue_.cancelTimer(*mixTimer_);
  if (!timerQueue_.isCurrent()) timerQueue_.sync([] {});  // a tick that was running has ended
  if (mic_) mic_->stop();
  if (systemAudio_) {
    auto outcome = std::make_shared<AsyncOutcome>();
    std::thread([source = systemAudio_, outcome] {
      source->stop();
      outcome->done.release();
    }).detach();
    (void)outcome->done.try_acquire_for(timing_.systemStopWait);  // a time-out is ignored
  }
  if (mixer_) {
    const Samples block = mixer_->drain(mixer_->longestQueue());
    if (!block.empty()) {
      meter_.add(block);
      writer_->append(block);
    }
  }
  writer_->finish();
  int64_t frames;
  {
    const auto held = writer_->hold();
    frames = writer_->frames(held);
  }
  printEvent(Json{{"type", "record-stopped"},
                  {"path", writer_->path()},
                  {"frames", frames},
                  {"elapsedMs", frames * 1000 / kSampleRate},
                  {"bytes", frames * 1 * 2 + 44},
                  {"sampleRate", kSampleRate},
                  {"channels", 1}});
  std::lock_guard<std::mutex> held(lock_);
  completed_ = true;
  completedChanged_.notify_all();
}

void RecordSession::waitUntilCompleted() {
  std::unique_lock<std::mutex> held(lock_);
  completedChanged_.wait(held, [this] { return completed_; });
}

bool RecordSession::completed() {
  std::lock_guard<std::mutex> held(lock_);
  return completed_;
}

}  // namespace tallowbrook
