// Meter: the loudness of everything written to a recording between two level reports.
#pragma once

#include <cstdint>
#include <mutex>
#include <span>

namespace tallowbrook {

// Linear levels between 0 and 1 (no decibels).
struct Level {
  double rms = 0;
  double peak = 0;
  bool clipped = false;
};

// Accumulates samples between two `take()` calls. Shared (std::shared_ptr) by the threads
// that deliver samples and the timer that reports levels; both members may be called from
// any thread. `lock_` guards the four accumulators and is held only for their update, never
// while another lock is taken.
class Meter {
 public:
  // Adds a block. Each sample's magnitude is |s| / 32768 (so -32768 is exactly 1.0); a
  // sample of 32767 or -32768 counts as clipped. The per-sample work runs before the lock is
  // taken; an empty block returns without taking it.
  void add(std::span<const int16_t> samples);

  // The levels since the last take (rms over all samples together, the largest magnitude,
  // whether any sample clipped), and starts afresh. Nothing added gives {0, 0, false}.
  Level take();

 private:
  std::mutex lock_;
  double sumSquares_ = 0;  // guarded by lock_
  int64_t count_ = 0;      // guarded by lock_
  double peak_ = 0;        // guarded by lock_
  bool clipped_ = false;   // guarded by lock_
};

}  // namespace tallowbrook
