#include "record/mic_source.h"

#include <stdexcept>
#include <utility>

#include "record/record_error.h"

namespace tallowbrook {

std::shared_ptr<MicSource> MicSource::create(std::unique_ptr<InputEngine> engine,
                                             std::unique_ptr<ToTarget> converter, SampleSink sink,
                                             WarningSink warn, const Clock& clock) {
  std::shared_ptr<MicSource> source(new MicSource(std::move(engine), std::move(converter),
                                                  std::move(sink), std::move(warn), clock));
  std::weak_ptr<MicSource> weak = source;
  source->engine_->setConfigurationChangeHandler([weak] {
    if (auto self = weak.lock()) self->reconfigure("the input device changed");
  });
  return source;
}

MicSource::MicSource(std::unique_ptr<InputEngine> engine, std::unique_ptr<ToTarget> converter,
                     SampleSink sink, WarningSink warn, const Clock& clock)
    : engine_(std::move(engine)),
      converter_(std::move(converter)),
      sink_(std::move(sink)),
      emitWarning_(std::move(warn)),
      clock_(clock),
      lastBufferAt_(clock.nowNanos()),
      lastRetryAt_(clock.nowNanos()) {}

MicSource::~MicSource() = default;

void MicSource::start(const std::optional<std::string>& deviceUID) {
  if (deviceUID) {
    if (const std::optional<uint32_t> id = engine_->deviceId(*deviceUID)) {
      select(*id);
    } else {
      warn("input device " + *deviceUID +
               " is not connected. Recording from the system default instead.",
           std::nullopt);
    }
  }
  const AudioFormat format = engine_->inputFormat();
  if (!(format.sampleRate > 0)) {
    throw RecordError{
        "no microphone input is available. If Microphone access is off, open System Settings "
        "→ Privacy & Security → Microphone, switch Tallowbrook on, then try again."};
  }
  install(format);
  engine_->start();  // its error ends the start
  std::lock_guard<std::mutex> held(lock_);
  running_ = true;
  lastBufferAt_ = clock_.nowNanos();
}

void MicSource::select(uint32_t id) {
  const int32_t status = engine_->select(id);
  if (status != 0) {
    warn("could not select that input device (CoreAudio " + std::to_string(status) +
             "). Recording from the system default instead.",
         std::nullopt);
  }
}

void MicSource::install(const AudioFormat& format) {
  std::weak_ptr<MicSource> weak = weak_from_this();
  engine_->installTap(format, [weak](const PcmBuffer& buffer) {
    auto self = weak.lock();
    if (!self) return;
    {
      std::lock_guard<std::mutex> held(self->lock_);
      self->lastBufferAt_ = self->clock_.nowNanos();
      self->announcedSilence_ = false;
    }
    if (std::optional<Samples> samples = self->converter_->convert(buffer)) {
      self->sink_(std::move(*samples));
    }
  });
}

void MicSource::poll() {
  uint64_t now, lastBuffer;
  bool running;
  {
    std::lock_guard<std::mutex> held(lock_);
    if (stopped_) return;
    running = running_;
    now = clock_.nowNanos();
    lastBuffer = lastBufferAt_;
  }
  bool scheduleLid = false;
  {
    std::lock_guard<std::mutex> held(lock_);
    if (now - lastLidCheck_ >= 1'000'000'000ULL) {
      lastLidCheck_ = now;
      scheduleLid = true;
    }
  }
  if (scheduleLid) {
    LidProbeDiagnostic::report("poll-scheduled", 0, 0);
    std::weak_ptr<MicSource> weak = weak_from_this();
    reconfigureQueue_.async([weak] {
      if (auto self = weak.lock()) self->lidCheck();
    });
  }
  if (!running) {
    bool retry = false;
    {
      std::lock_guard<std::mutex> held(lock_);
      if (now - lastRetryAt_ > 2'000'000'000ULL) {
        lastRetryAt_ = now;
        retry = true;
      }
    }
    if (retry) reconfigure("the input device came back");
    return;
  }
  if (now - lastBuffer > 2'000'000'000ULL) {
    bool announced;
    {
      std::lock_guard<std::mutex> held(lock_);
      announced = announcedSilence_;
      announcedSilence_ = true;
    }
    if (!announced) {
      warn(
          "the input has produced no audio for two seconds. Recording continues; check the "
          "device.",
          std::nullopt);
    }
  }
}

void MicSource::lidCheck() {
  {
    std::lock_guard<std::mutex> held(lock_);
    if (stopped_) return;
  }
  const std::optional<bool> blocked = engine_->lidBlocked();
  if (!blocked || *blocked == lidWarning_.warned) return;
  lidWarning_.warned = *blocked;
  emitWarning_(std::string(*blocked ? kLidClosedText : kLidClearedText), std::nullopt);
}

void MicSource::activateWarnings() {
  std::weak_ptr<MicSource> weak = weak_from_this();
  reconfigureQueue_.async([weak] {
    if (auto self = weak.lock()) self->warningsActive_ = true;
  });
}

void MicSource::warn(std::string message, std::optional<int64_t> gapMs) {
  std::weak_ptr<MicSource> weak = weak_from_this();
  reconfigureQueue_.async([weak, message = std::move(message), gapMs] {
    auto self = weak.lock();
    if (!self) return;
    {
      std::lock_guard<std::mutex> held(self->lock_);
      if (self->stopped_) return;
    }
    std::string text = message;
    if (self->warningsActive_) {
      text = self->lidWarning_.routeMessage(text, self->engine_->lidBlocked());
    }
    self->emitWarning_(text, gapMs);
  });
}

void MicSource::reconfigure(const std::string& reason) {
  std::weak_ptr<MicSource> weak = weak_from_this();
  reconfigureQueue_.async([weak, reason] {
    if (auto self = weak.lock()) self->rebuild(reason);
  });
}

void MicSource::rebuild(const std::string& reason) {
  uint64_t now, lastBuffer;
  {
    std::lock_guard<std::mutex> held(lock_);
    if (stopped_) return;
    now = clock_.nowNanos();
    lastBuffer = lastBufferAt_;
  }
  engine_->removeTap();
  engine_->stop();
  {
    std::lock_guard<std::mutex> held(lock_);
    running_ = false;
  }
  const AudioFormat format = engine_->inputFormat();
  if (!(format.sampleRate > 0)) {
    warn(
        "the input device went away and macOS is offering no replacement. The recording is "
        "still running and will resume when one returns.",
        std::nullopt);
    return;
  }
  install(format);
  try {
    engine_->start();
  } catch (const std::exception& error) {
    warn(std::string("could not restart on the new input device: ") + error.what(), std::nullopt);
    return;
  }
  const uint64_t gap = now - lastBuffer;
  bool stoppedMeanwhile;
  {
    std::lock_guard<std::mutex> held(lock_);
    stoppedMeanwhile = stopped_;
    if (!stoppedMeanwhile) {
      running_ = true;
      lastBufferAt_ = now;
    }
  }
  if (stoppedMeanwhile) {  // a stop that came while the engine was restarting wins
    engine_->removeTap();
    engine_->stop();
    return;
  }
  const auto gapMs = int64_t(double(gap) / 1'000'000.0);
  warn(reason + ". Recording continues at " + std::to_string(int64_t(format.sampleRate)) + " Hz.",
       gapMs >= 251 ? std::optional<int64_t>(gapMs) : std::nullopt);
}

void MicSource::stop() {
  {
    std::lock_guard<std::mutex> held(lock_);
    running_ = false;
    stopped_ = true;
  }
  engine_->removeTap();
  engine_->stop();
}

void MicSource::drainQueue() {
  // A rebuild queues its warning behind it: three rounds see work queued by queued work.
  for (int round = 0; round < 3; ++round) reconfigureQueue_.sync([] {});
}

}  // namespace tallowbrook
