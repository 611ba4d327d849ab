#include "audio/mixer.h"

#include <algorithm>

namespace tallowbrook {

void Mixer::push(std::span<const int16_t> samples, MixerQueue queue) {
  std::lock_guard<std::mutex> held(lock_);
  auto& q = queue == MixerQueue::mic ? mic_ : system_;
  q.append(samples);
  if (q.size() > kMaxQueued) {
    q.keepNewest(kMaxQueued);
    dropped_ = true;
  }
}

Samples Mixer::drain(int64_t frames) {
  DrainReport ignored;
  return drain(frames, ignored);
}

Samples Mixer::drain(int64_t frames, DrainReport& report) {
  if (frames < 1) return {};
  const auto n = static_cast<size_t>(frames);
  Samples out(n);
  std::lock_guard<std::mutex> held(lock_);
  const std::span<const int16_t> mic = mic_.view().first(std::min(n, mic_.size()));
  const std::span<const int16_t> system = system_.view().first(std::min(n, system_.size()));
  // The common stretch first, in a loop the compiler vectorises; then the longer side alone.
  const size_t both = std::min(mic.size(), system.size());
  for (size_t i = 0; i < both; ++i) {
    out[i] = static_cast<int16_t>(std::clamp(int32_t(mic[i]) + int32_t(system[i]), -32768, 32767));
  }
  const std::span<const int16_t> longer = mic.size() > both ? mic : system;
  std::copy(longer.begin() + static_cast<ptrdiff_t>(both), longer.end(),
            out.begin() + static_cast<ptrdiff_t>(both));
  mic_.dropFront(mic.size());
  system_.dropFront(system.size());
  report.micShort = mic.size() < n;
  report.systemShort = system.size() < n;
  report.micQueued = static_cast<int64_t>(mic_.size());
  report.systemQueued = static_cast<int64_t>(system_.size());
  return out;
}

std::pair<int64_t, int64_t> Mixer::queued() {
  std::lock_guard<std::mutex> held(lock_);
  return {static_cast<int64_t>(mic_.size()), static_cast<int64_t>(system_.size())};
}

void Mixer::trimTo(int64_t keep) {
  const auto limit = static_cast<size_t>(std::max<int64_t>(keep, 0));
  std::lock_guard<std::mutex> held(lock_);
  mic_.keepNewest(limit);
  system_.keepNewest(limit);
}

void Mixer::prime(MixerQueue queue, int64_t count) {
  if (count < 1) return;
  std::lock_guard<std::mutex> held(lock_);
  auto& q = queue == MixerQueue::mic ? mic_ : system_;
  q.prependZeros(static_cast<size_t>(count));
}

void Mixer::reset() {
  std::lock_guard<std::mutex> held(lock_);
  mic_.clear();
  system_.clear();
  dropped_ = false;
}

bool Mixer::takeDropped() {
  std::lock_guard<std::mutex> held(lock_);
  const bool was = dropped_;
  dropped_ = false;
  return was;
}

int64_t Mixer::longestQueue() {
  std::lock_guard<std::mutex> held(lock_);
  return static_cast<int64_t>(std::max(mic_.size(), system_.size()));
}

}  // namespace tallowbrook
