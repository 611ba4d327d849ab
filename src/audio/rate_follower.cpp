#include "audio/rate_follower.h"

#include <algorithm>
#include <cmath>

namespace tallowbrook {
namespace {

// Controller gains, per second: proportional and integral, critically damped (ki = kp²/4),
// settling in some ten seconds; the level is averaged over about one second first.
constexpr double kProportional = 0.1;
constexpr double kIntegral = kProportional * kProportional / 4;
constexpr double kSmoothingSeconds = 1.0;
constexpr double kRate = 48000;

// Rounds half away from zero, as lround does, without a library call per sample (that call
// was a third of the follower's time).
int16_t toSample(double value) {
  value = std::clamp(value, -32768.0, 32767.0);
  return static_cast<int16_t>(value >= 0 ? value + 0.5 : value - 0.5);
}

}  // namespace

Samples RateFollower::process(std::span<const int16_t> input) {
  std::lock_guard<std::mutex> held(lock_);
  if (pending_.empty() && !input.empty()) pending_.push_back(input.front());  // x[-1]
  pending_.insert(pending_.end(), input.begin(), input.end());
  Samples out;
  out.reserve(size_t(double(input.size()) / ratio_) + 2);
  // Catmull-Rom between pending_[i] and pending_[i + 1], with pending_[i - 1] and
  // pending_[i + 2] as the outer points.
  for (;;) {
    const auto i = size_t(position_);
    const double t = position_ - double(i);
    if (i + (t == 0 ? 0 : 2) >= pending_.size()) break;
    const double p1 = pending_[i];
    if (t == 0) {
      out.push_back(static_cast<int16_t>(p1));
    } else {
      const double p0 = pending_[i - 1], p2 = pending_[i + 1], p3 = pending_[i + 2];
      const double value =
          p1 +
          0.5 * t * (p2 - p0 + t * (2 * p0 - 5 * p1 + 4 * p2 - p3 + t * (3 * (p1 - p2) + p3 - p0)));
      out.push_back(toSample(value));
    }
    position_ += ratio_;
  }
  // Keep one sample before the read position for the next call's outer point.
  const auto keepFrom = std::min(size_t(position_) - 1, pending_.size());
  pending_.erase(pending_.begin(), pending_.begin() + static_cast<ptrdiff_t>(keepFrom));
  position_ -= double(keepFrom);
  return out;
}

void RateFollower::steer(int64_t queued, int64_t target, double seconds) {
  std::lock_guard<std::mutex> held(lock_);
  if (!smoothing_) {
    smoothed_ = double(queued);
    smoothing_ = true;
  } else {
    const double weight = std::min(1.0, seconds / kSmoothingSeconds);
    smoothed_ += weight * (double(queued) - smoothed_);
  }
  const double error = (smoothed_ - double(target)) / kRate;  // seconds of audio too many
  integral_ = std::clamp(integral_ + kIntegral * error * seconds, -kMaxCorrection, kMaxCorrection);
  ratio_ = 1 + std::clamp(kProportional * error + integral_, -kMaxCorrection, kMaxCorrection);
}

void RateFollower::reset() {
  std::lock_guard<std::mutex> held(lock_);
  pending_.clear();
  position_ = 1;
  ratio_ = 1;
  smoothed_ = 0;
  smoothing_ = false;
  integral_ = 0;
}

double RateFollower::ratio() {
  std::lock_guard<std::mutex> held(lock_);
  return ratio_;
}

}  // namespace tallowbrook
