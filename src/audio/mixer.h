// Mixer: joins the microphone and the system audio into one mono stream.
#pragma once

#include <cstdint>
#include <mutex>
#include <span>
#include <utility>

#include "audio/sample_queue.h"
#include "audio/samples.h"

namespace tallowbrook {

// Which of the mixer's two queues a source feeds.
enum class MixerQueue { mic, system };

// What a drain left behind: each queue's length afterwards, and whether it came up short
// (was padded with silence).
struct DrainReport {
  int64_t micQueued = 0;
  int64_t systemQueued = 0;
  bool micShort = false;
  bool systemShort = false;
};

// Two queues of converted samples (48000 Hz mono), each filled by its source's delivery
// thread and emptied by the session's mix timer, which drains as many frames as wall-clock
// time says and writes their sum. A queue never holds more than five seconds: the oldest
// samples are dropped and `dropped` is raised. Shared through std::shared_ptr; every member
// may be called from any thread. `lock_` guards both queues and `dropped_` and is held only
// for the queue operations and a drain's sum, never while another lock is taken.
class Mixer {
 public:
  static constexpr size_t kMaxQueued = 240000;  // samples per queue: 5 s at 48000 Hz mono

  // Appends `samples` to `queue`; if it then holds more than kMaxQueued samples, keeps the
  // newest kMaxQueued and raises `dropped`.
  void push(std::span<const int16_t> samples, MixerQueue queue);

  // Exactly `frames` samples (none when `frames` < 1, without taking the lock): takes up to
  // `frames` from the front of each queue and sums them pairwise, a short side counting as
  // silence, in 32-bit arithmetic saturated to -32768...32767. No gain or halving.
  Samples drain(int64_t frames);
  // The same, and tells what it left in `report` (untouched when `frames` < 1).
  Samples drain(int64_t frames, DrainReport& report);

  // Each queue's length, mic first.
  std::pair<int64_t, int64_t> queued();

  // Drops the oldest samples of each queue beyond its newest `keep` (at the start of a mix,
  // what one source delivered before the other began).
  void trimTo(int64_t keep);

  // Puts `count` zero samples at the front of `queue` (a source that starts or restarts
  // gets a cushion against delivery jitter).
  void prime(MixerQueue queue, int64_t count);

  // Empties both queues and lowers `dropped`.
  void reset();

  // Whether samples were dropped since the last call, and lowers the flag.
  bool takeDropped();

  // The number of samples in the longer of the two queues.
  int64_t longestQueue();

 private:
  std::mutex lock_;
  SampleQueue mic_;       // guarded by lock_
  SampleQueue system_;    // guarded by lock_
  bool dropped_ = false;  // guarded by lock_
};

}  // namespace tallowbrook
