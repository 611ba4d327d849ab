// SystemAudioSource: what the machine plays, captured for a recording.
#pragma once

#include <memory>
#include <mutex>

#include "audio/to_target.h"
#include "record/mic_source.h"
#include "record/system_capture.h"

namespace tallowbrook {

// Records the system's audio through a SystemCapture, converts each buffer with its own
// ToTarget and hands the samples to `sink`. A capture that the service ends gives one warning,
// "system audio capture stopped: <why>", and nothing else: the recording goes on without it.
// `start` and `stop` may block; the session runs them on threads of their own with time limits.
// `lock_` guards `started_`.
class SystemAudioSource : public std::enable_shared_from_this<SystemAudioSource> {
 public:
  SystemAudioSource(std::unique_ptr<SystemCapture> capture, std::unique_ptr<ToTarget> converter,
                    SampleSink sink, WarningSink warn);

  // Starts capture. Throws RecordError "Screen Recording is off, so system audio cannot be
  // captured. ..." when the preflight says no (before any other call to the service), or a
  // RecordError naming the service's reason when capture cannot start. Any one thread.
  void start();

  // Ends capture; returns at once when it never started. Any thread; more than once is fine.
  void stop();

 private:
  const std::unique_ptr<SystemCapture> capture_;
  const std::unique_ptr<ToTarget> converter_;
  const SampleSink sink_;
  const WarningSink warn_;
  std::mutex lock_;
  bool started_ = false;  // guarded by lock_
};

// The message of a failed system-audio start whose preflight said no.
inline constexpr const char* kScreenRecordingOffText =
    "Screen Recording is off, so system audio cannot be captured. Open System Settings → Privacy "
    "& Security → Screen & System Audio Recording, switch Tallowbrook on, then quit and reopen "
    "Tallowbrook.";

}  // namespace tallowbrook
