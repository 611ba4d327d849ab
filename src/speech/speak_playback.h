// Speak::Playback: how a preview ended.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

#include "speech/speech_engine.h"

namespace tallowbrook::Speak {

// The delegate of a preview. The synthesiser's thread reports the end; the main thread waits
// for it. `lock_` guards `didFinish_` and `gaveUp_` and is never held while another lock is
// taken.
class Playback : public PlaybackDelegate {
 public:
  // Speaking finished, or was cancelled (which counts as finished). Any thread.
  void didFinish() override;
  void didCancel() override;
  // Nothing could be played: the wait ends without didFinish. Any thread.
  void didFail(const std::string& reason) override;

  // Waits in steps of at most `slice` until the preview finished, failed, or `deadline` passed.
  // Returns whether it finished. Main thread.
  bool waitUntil(std::chrono::steady_clock::time_point deadline, std::chrono::milliseconds slice);

 private:
  std::mutex lock_;
  std::condition_variable changed_;
  bool didFinish_ = false;  // guarded by lock_
  bool gaveUp_ = false;     // guarded by lock_
};

}  // namespace tallowbrook::Speak
