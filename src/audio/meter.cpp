#include "audio/meter.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "audio/checked_math.h"

namespace tallowbrook {

void Meter::add(std::span<const int16_t> samples) {
  if (samples.empty()) return;
  double sum = 0;
  double peak = 0;
  bool clipped = false;
  for (int16_t s : samples) {
    const double a = std::abs(static_cast<double>(s)) / 32768.0;
    sum += a * a;
    peak = std::max(peak, a);
    clipped = clipped || s == 32767 || s == -32768;
  }
  std::lock_guard<std::mutex> held(lock_);
  sumSquares_ += sum;
  count_ = checkedAdd(count_, static_cast<int64_t>(samples.size()));
  peak_ = std::max(peak_, peak);
  clipped_ = clipped_ || clipped;
}

Level Meter::take() {
  double sumSquares;
  int64_t count;
  Level level;
  {
    std::lock_guard<std::mutex> held(lock_);
    sumSquares = sumSquares_;
    count = count_;
    level.peak = peak_;
    level.clipped = clipped_;
    sumSquares_ = 0;
    count_ = 0;
    peak_ = 0;
    clipped_ = false;
  }
  if (count < 1) return Level{};
  level.rms = std::sqrt(sumSquares / static_cast<double>(count));
  return level;
}

}  // namespace tallowbrook
