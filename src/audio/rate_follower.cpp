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

// Rounds half away from zero, as lround does, without a library call or a branch per sample
// (a call was a third of the follower's time, and a branch on the sign mispredicts as often as
// the signal crosses zero).
int16_t toSample(float value) {
  value = std::min(32767.0f, std::max(-32768.0f, value));
  return static_cast<int16_t>(static_cast<int32_t>(value + std::copysign(0.5f, value)));
}

}  // namespace

Samples RateFollower::process(std::span<const int16_t> input) {
  std::lock_guard<std::mutex> held(lock_);
  if (pending_.empty() && !input.empty()) pending_.push_back(input.front());  // x[-1]
  pending_.insert(pending_.end(), input.begin(), input.end());
  const float* pending = pending_.data();
  const size_t size = pending_.size();
  const double ratio = ratio_;
  double position = position_;
  Samples out;
  if (ratio == 1 && position == std::floor(position)) {
    // Whole-sample positions: the samples pass through unchanged, up to the newest.
    const auto from = size_t(position);
    if (from < size) {
      out.resize(size - from);
      for (size_t k = 0; k < out.size(); ++k) out[k] = static_cast<int16_t>(pending[from + k]);
      position = double(size);
    }
  } else {
    // Output k interpolates at position + k * ratio and looks two samples past it: count the
    // outputs whose look-ahead is already here, so the loop has neither a bound check nor a
    // carried sum.
    const auto lookAheadHere = [&](size_t k) {
      return size_t(position + double(k) * ratio) + 2 < size;
    };
    size_t count =
        position + 2 < double(size) ? size_t((double(size) - 2 - position) / ratio) + 1 : 0;
    while (count > 0 && !lookAheadHere(count - 1)) --count;
    while (lookAheadHere(count)) ++count;
    out.resize(count);
    // Catmull-Rom between pending[i] and pending[i + 1], with pending[i - 1] and
    // pending[i + 2] as the outer points. The indices are signed: their conversions to and
    // from double are single instructions.
    for (int64_t k = 0; k < int64_t(count); ++k) {
      const double x = position + double(k) * ratio;
      const auto i = int64_t(x);
      const auto t = float(x - double(i));
      const float p0 = pending[i - 1], p1 = pending[i], p2 = pending[i + 1], p3 = pending[i + 2];
      const float value =
          p1 + 0.5f * t *
                   (p2 - p0 + t * (2 * p0 - 5 * p1 + 4 * p2 - p3 + t * (3 * (p1 - p2) + p3 - p0)));
      out[k] = toSample(value);
    }
    position += double(count) * ratio;
  }
  position_ = position;
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
