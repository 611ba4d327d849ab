#include "record/system_audio_source.h"

#include <stdexcept>
#include <utility>

#include "record/record_error.h"

namespace tallowbrook {

SystemAudioSource::SystemAudioSource(std::unique_ptr<SystemCapture> capture,
                                     std::unique_ptr<ToTarget> converter, SampleSink sink,
                                     WarningSink warn)
    : capture_(std::move(capture)),
      converter_(std::move(converter)),
      sink_(std::move(sink)),
      warn_(std::move(warn)) {}

void SystemAudioSource::start() {
  if (!capture_->preflight()) throw RecordError{kScreenRecordingOffText};
  std::weak_ptr<SystemAudioSource> weak = weak_from_this();
  try {
    capture_->start(
        [weak](const PcmBuffer& buffer) {
          auto self = weak.lock();
          if (!self || buffer.frameLength() == 0) return;
          if (std::optional<Samples> samples = self->converter_->convert(buffer)) {
            self->sink_(std::move(*samples));
          }
        },
        [weak](const std::string& why) {
          if (auto self = weak.lock()) self->warn_("system audio capture stopped: " + why, {});
        });
  } catch (const RecordError&) {
    throw;
  } catch (const std::exception& error) {
    throw RecordError{std::string("System audio cannot be captured: the sound server said \"") +
                      error.what() + "\". Check that the sound server is running, then try again."};
  }
  std::lock_guard<std::mutex> held(lock_);
  started_ = true;
}

void SystemAudioSource::stop() {
  {
    std::lock_guard<std::mutex> held(lock_);
    if (!started_) return;
    started_ = false;
  }
  capture_->stop();
}

}  // namespace tallowbrook
