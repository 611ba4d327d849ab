// MicSource: the microphone of a recording, kept going through device changes.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "audio/samples.h"
#include "audio/to_target.h"
#include "record/clock.h"
#include "record/input_engine.h"
#include "record/microphone_route.h"
#include "record/serial_queue.h"

namespace tallowbrook {

// Receives converted samples (48000 Hz mono 16-bit), on the engine's capture thread.
using SampleSink = std::function<void(Samples samples)>;
// Receives a warning and, when the source reports a gap in its delivery, its length in ms.
using WarningSink = std::function<void(const std::string& message, std::optional<int64_t> gapMs)>;

// Captures the input device through an InputEngine, converts every buffer with its ToTarget
// and hands the samples to `sink`. Device changes rebuild the capture on whatever input is
// present now; with no input it keeps the recording running and retries every two seconds; a
// running input that delivers nothing for two seconds gives one warning; a closed lid that
// cuts off a built-in microphone is reported. Every report goes out through the warning sink,
// always from the source's serial reconfigure queue.
//
// Always held through std::shared_ptr (`create`); callbacks handed to the engine hold it
// weakly. `lock_` guards running_, stopped_, lastBufferAt_, lastRetryAt_, announcedSilence_
// and lastLidCheck_; lidWarning_ and warningsActive_ are touched only on the reconfigure
// queue. No lock of the source is held while calling the engine, the converter or a sink.
class MicSource : public std::enable_shared_from_this<MicSource> {
 public:
  static std::shared_ptr<MicSource> create(std::unique_ptr<InputEngine> engine,
                                           std::unique_ptr<ToTarget> converter, SampleSink sink,
                                           WarningSink warn, const Clock& clock = steadyClock());
  ~MicSource();

  // Starts capture on the device with `deviceUID` (a device that is not present gives the
  // "is not connected" warning and the default input), or on the default input. Throws
  // RecordError "no microphone input is available. ..." when there is no input, or the
  // engine's error when it cannot start. The session's thread.
  void start(const std::optional<std::string>& deviceUID);

  // The watchdog, from the session's level tick: the lid check at most once a second, a retry
  // every two seconds while no input runs, the two-second silence warning. Timer queue.
  void poll();

  // From now on every warning is routed through the closed-lid state (asynchronously, on the
  // reconfigure queue). Any thread.
  void activateWarnings();

  // Stops for good: capture ends and every pending or later rebuild, lid check, poll and
  // warning does nothing. Any thread; more than once is harmless.
  void stop();

  // Waits until the work queued on the reconfigure queue so far, and the warnings that work
  // queued in turn, has run. For tests; not from the reconfigure queue.
  void drainQueue();

 private:
  MicSource(std::unique_ptr<InputEngine> engine, std::unique_ptr<ToTarget> converter,
            SampleSink sink, WarningSink warn, const Clock& clock);
  void select(uint32_t id);
  void install(const AudioFormat& format);
  void warn(std::string message, std::optional<int64_t> gapMs);
  void reconfigure(const std::string& reason);
  void rebuild(const std::string& reason);
  void lidCheck();

  const std::unique_ptr<InputEngine> engine_;
  const std::unique_ptr<ToTarget> converter_;
  const SampleSink sink_;
  const WarningSink emitWarning_;
  const Clock& clock_;
  std::mutex lock_;
  SerialQueue reconfigureQueue_;
  bool running_ = false;             // guarded by lock_
  bool stopped_ = false;             // guarded by lock_
  uint64_t lastBufferAt_;            // guarded by lock_
  uint64_t lastRetryAt_;             // guarded by lock_
  bool announcedSilence_ = false;    // guarded by lock_
  uint64_t lastLidCheck_ = 0;        // guarded by lock_
  MicrophoneLidWarning lidWarning_;  // reconfigure queue only
  bool warningsActive_ = false;      // reconfigure queue only
};

}  // namespace tallowbrook
