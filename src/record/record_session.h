// RecordSession: one recording from start to stop.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "audio/meter.h"
#include "audio/mixer.h"
#include "audio/rate_follower.h"
#include "audio/wav_writer.h"
#include "record/mic_source.h"
#include "record/record_input.h"
#include "record/record_platform.h"
#include "record/serial_queue.h"
#include "record/system_audio_source.h"

namespace tallowbrook {

// How often the sources of a recording of `input` hand over their audio. One input alone:
// every 10 ms, so that the file and the level lines follow the audio within a few
// milliseconds. Both inputs: every 50 ms, one fragment per mix tick; the mix runs a cushion
// behind the clock anyway, and each wakeup of the process costs tens of microseconds (at 10 ms
// the two streams' 200 wakeups a second were most of the recording's CPU).
DeliveryPeriod deliveryPeriod(RecordInput input);

// The zero blocks that fill a gap of `silenceMs` in a recording of `channels` channels at
// 48000 Hz: silenceMs x 48000 / 1000 x channels samples (integer arithmetic) in blocks of at
// most 48000; none when silenceMs < 1. Pure.
std::vector<int64_t> silenceBlocks(int64_t silenceMs, int64_t channels);

// The session's timers and waits.
struct SessionTiming {
  bool runTimers = true;  // false: tests call tick() and mixTick() themselves
  std::chrono::nanoseconds systemStartWait = std::chrono::seconds(15);
  std::chrono::nanoseconds systemStopWait = std::chrono::seconds(3);
};

// Owns the WAV writer (48000 Hz mono), the meter, the mixer (both inputs only) and the capture
// sources; runs the 0.1 s level tick and the 0.05 s mix tick on its serial timer queue; prints
// every event of the recording as one JSON line ("record-started", "level", "record-paused",
// "record-resumed", "record-warning", "record-stopped").
//
// Always held through std::shared_ptr (`create`); the callbacks handed to the sources and the
// timers hold it weakly. `lock_` guards paused_, finished_, mixCarry_, mixLastTick_,
// completed_ and the mix's state (mixRunning_, mixTarget_, mixOwed_, starved_); no session lock is
// held while another lock is taken or an event printed.
class RecordSession : public std::enable_shared_from_this<RecordSession> {
 public:
  using Timing = SessionTiming;

  // Creates the writer at `path` (throws its RecordError or std::system_error). `platform`
  // must outlive the session.
  static std::shared_ptr<RecordSession> create(const std::string& path, RecordInput input,
                                               RecordPlatform& platform, Timing timing = {});
  ~RecordSession();

  // Checks the microphone permission (mic and both), starts the microphone on `deviceUID`
  // (or the default input), starts system audio (system and both) waiting at most 15 s,
  // prints "record-started" and starts the timers. Throws RecordError, or the error of a
  // source; after a failed system-audio start the microphone is stopped and the file finished.
  // The caller's thread; once.
  void start(const std::optional<std::string>& deviceUID);

  // Pauses (prints "record-paused") unless paused or finished already. Any thread.
  void pause();
  // Resumes (prints "record-resumed") when paused and not finished. Any thread.
  void resume();
  // Stops the sources, writes what is queued, finishes the file, prints "record-stopped" and
  // marks the session completed. Runs once; later calls return at once. Any thread but the
  // timer queue.
  void stop();
  // Whether stop() has finished. Any thread.
  bool completed();
  // Blocks until stop() has finished. Any thread but the timer queue.
  void waitUntilCompleted();

  // The level tick and the mix tick (timer queue; tests call them directly).
  void tick();
  void mixTick();

  // The callbacks handed to the sources (hold the session weakly). Any thread.
  SampleSink micSink();
  SampleSink systemSink();
  WarningSink warningSink();

  WavWriter& writer() { return *writer_; }
  Mixer* mixer() { return mixer_.get(); }

 private:
  RecordSession(const std::string& path, RecordInput input, RecordPlatform& platform,
                Timing timing);
  void sinkSamples(Samples samples, bool fromMic);
  void warning(const std::string& message, std::optional<int64_t> silenceMs);
  void startTimers();
  // Empties the mixer and forgets the followers and the mix's start (timer queue, or the
  // starting thread before the timers run).
  void resetMix();
  // Starts the mix once both queues hold the cushion, or when a source is late; until then
  // ticks only move the mix's clock. Nothing: not started yet; -1: running; otherwise it has
  // just started and that many frames, the audio beyond the cushion, are to be written at
  // once. Timer queue.
  std::optional<int64_t> startMixWhenReady(uint64_t now);
  int64_t elapsedMs();

  RecordPlatform& platform_;
  const Clock& clock_;
  const Timing timing_;
  const std::unique_ptr<WavWriter> writer_;
  Meter meter_;
  const RecordInput input_;
  std::mutex lock_;
  bool paused_ = false;    // guarded by lock_
  bool finished_ = false;  // guarded by lock_
  std::shared_ptr<MicSource> mic_;
  std::shared_ptr<SystemAudioSource> systemAudio_;
  std::unique_ptr<Mixer> mixer_;
  std::optional<SerialQueue::TimerId> levelTimer_;
  std::optional<SerialQueue::TimerId> mixTimer_;
  double mixCarry_ = 0;   // guarded by lock_
  uint64_t mixLastTick_;  // guarded by lock_
  // The mix starts writing once both queues hold a cushion of audio (or a source is late):
  uint64_t mixTimersStarted_ = 0;     // guarded by lock_: when the timers began
  bool mixRunning_ = false;           // guarded by lock_: the mix writes from here on
  int64_t mixTarget_ = 0;             // guarded by lock_: each queue's level to hold after a drain
  int64_t mixOwed_ = 0;               // guarded by lock_: frames due but not yet in both queues
  bool starved_[2] = {false, false};  // guarded by lock_: mic, system ran dry since running
  RateFollower followers_[2];         // mic, system: in step with the mix's clock
  int headerFlushCountdown_ = 0;      // timer queue only
  bool completed_ = false;            // guarded by lock_
  std::condition_variable completedChanged_;  // notified under lock_ when completed_ is set
  SerialQueue timerQueue_;
};

}  // namespace tallowbrook
