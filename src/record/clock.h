// Monotonic time for the recorder, behind an interface so tests can move it by hand.
#pragma once

#include <chrono>
#include <cstdint>

namespace tallowbrook {

class Clock {
 public:
  virtual ~Clock() = default;
  // Monotonic nanoseconds since an arbitrary start. Any thread.
  virtual uint64_t nowNanos() const = 0;
};

// The system's monotonic clock.
class SteadyClock final : public Clock {
 public:
  uint64_t nowNanos() const override {
    return uint64_t(std::chrono::duration_cast<std::chrono::nanoseconds>(
                        std::chrono::steady_clock::now().time_since_epoch())
                        .count());
  }
};

// The process's one steady clock. Any thread.
inline const Clock& steadyClock() {
  static const SteadyClock clock;
  return clock;
}

}  // namespace tallowbrook
