// RateFollower: keeps one source of a mixed recording in step with the wall clock.
#pragma once

#include <cstdint>
#include <mutex>
#include <span>
#include <vector>

#include "audio/samples.h"

namespace tallowbrook {

// A sound server's clock and the monotonic clock that paces the mix differ by some hundred
// parts per million (more on PipeWire's virtual devices): uncorrected, a source that runs
// slow empties its mixer queue every few seconds and gets padded with silence, a click.
// The follower resamples its source by a ratio within ±kMaxCorrection of 1, steered by the
// source's mixer queue: a queue that stays above its target level consumes input a little
// faster, one below it a little slower, so the queue holds its level and the mix never runs
// dry while the source keeps delivering. Four-point cubic interpolation; a ratio of exactly
// 1 on a whole-sample position passes samples through unchanged.
//
// `process` runs on the source's delivery thread, `steer` and `reset` on the mix timer; `lock_`
// guards every field and is taken by each of them for its whole (short) work, never while
// another lock is held.
class RateFollower {
 public:
  static constexpr double kMaxCorrection = 0.0015;  // 1500 ppm: inaudible as pitch

  // The input stretched or squeezed by the current ratio. At ratio 1 on a whole-sample
  // position every sample comes out at once; otherwise the newest two wait for the next
  // call (the interpolation looks ahead).
  Samples process(std::span<const int16_t> input);

  // Updates the ratio from the queue's level after a drain: `queued` samples against
  // `target`, `seconds` after the previous call. Smooths over about a second so that the
  // delivery granularity does not move the ratio.
  void steer(int64_t queued, int64_t target, double seconds);

  // Back to ratio 1 with no history (a new start).
  void reset();

  // Input samples consumed per output sample (1 + correction). For tests and reports.
  double ratio();

 private:
  std::mutex lock_;
  std::vector<float> pending_;  // guarded by lock_: input not yet interpolated past
  double position_ = 1;         // guarded by lock_: read position in pending_
  double ratio_ = 1;            // guarded by lock_
  double smoothed_ = 0;         // guarded by lock_: queue level, averaged
  bool smoothing_ = false;      // guarded by lock_: smoothed_ holds a value
  double integral_ = 0;         // guarded by lock_: the controller's integral term
};

}  // namespace tallowbrook
