#include "speech/speak_playback.h"

#include <algorithm>

namespace tallowbrook::Speak {

void Playback::didFinish() {
  {
    std::lock_guard<std::mutex> held(lock_);
    didFinish_ = true;
  }
  changed_.notify_all();
}

void Playback::didCancel() {
  didFinish();
}

void Playback::didFail(const std::string&) {
  {
    std::lock_guard<std::mutex> held(lock_);
    gaveUp_ = true;
  }
  changed_.notify_all();
}

bool Playback::waitUntil(std::chrono::steady_clock::time_point deadline,
                         std::chrono::milliseconds slice) {
  std::unique_lock<std::mutex> held(lock_);
  while (!didFinish_ && !gaveUp_) {
    auto now = std::chrono::steady_clock::now();
    if (now >= deadline) break;
    changed_.wait_until(held, std::min(deadline, now + slice));
  }
  return didFinish_;
}

}  // namespace tallowbrook::Speak
