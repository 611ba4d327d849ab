#include "audio/mixer.h"

#include <algorithm>

namespace tallowbrook {
namespace {

// Moves up to `n` samples from the front of `queue` into `out`.
void takeFront(std::deque<int16_t>& queue, size_t n, Samples& out) {
  const size_t count = std::min(n, queue.size());
  out.assign(queue.begin(), queue.begin() + static_cast<ptrdiff_t>(count));
  queue.erase(queue.begin(), queue.begin() + static_cast<ptrdiff_t>(count));
}

}  // namespace

void Mixer::push(std::span<const int16_t> samples, MixerQueue queue) {
  std::lock_guard<std::mutex> held(lock_);
  auto& q = queue == MixerQueue::mic ? mic_ : system_;
  q.insert(q.end(), samples.begin(), samples.end());
  if (q.size() > kMaxQueued) {
    q.erase(q.begin(), q.begin() + static_cast<ptrdiff_t>(q.size() - kMaxQueued));
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
  Samples mic, system;
  {
    std::lock_guard<std::mutex> held(lock_);
    takeFront(mic_, n, mic);
    takeFront(system_, n, system);
    report.micQueued = static_cast<int64_t>(mic_.size());
    report.systemQueued = static_cast<int64_t>(system_.size());
  }
  report.micShort = mic.size() < n;
  report.systemShort = system.size() < n;
  Samples out(n);
  for (size_t i = 0; i < n; ++i) {
    const int32_t a = i < mic.size() ? mic[i] : 0;
    const int32_t b = i < system.size() ? system[i] : 0;
    out[i] = static_cast<int16_t>(std::clamp(a + b, -32768, 32767));
  }
  return out;
}

std::pair<int64_t, int64_t> Mixer::queued() {
  std::lock_guard<std::mutex> held(lock_);
  return {static_cast<int64_t>(mic_.size()), static_cast<int64_t>(system_.size())};
}

void Mixer::trimTo(int64_t keep) {
  const auto limit = static_cast<size_t>(std::max<int64_t>(keep, 0));
  std::lock_guard<std::mutex> held(lock_);
  for (auto* q : {&mic_, &system_}) {
    if (q->size() > limit) {
      q->erase(q->begin(), q->begin() + static_cast<ptrdiff_t>(q->size() - limit));
    }
  }
}

void Mixer::prime(MixerQueue queue, int64_t count) {
  if (count < 1) return;
  std::lock_guard<std::mutex> held(lock_);
  auto& q = queue == MixerQueue::mic ? mic_ : system_;
  q.insert(q.begin(), static_cast<size_t>(count), int16_t(0));
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
