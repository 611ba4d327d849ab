// Speak::Marks: where each spoken range begins in the rendered audio.
#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

namespace tallowbrook::Speak {

struct Mark {
  int64_t atMs = 0;  // milliseconds into the audio
  int64_t loc = 0;   // start of the spoken range, in UTF-16 code units of the text
  int64_t len = 0;   // length of the range, in UTF-16 code units
};

// What Marks holds once rendering is over.
struct MarksSnapshot {
  int64_t frames = 0;
  double rate = 22050.0;
  std::vector<Mark> marks;
};

// Shared by the synthesiser's thread, which counts frames and announces ranges, and the main
// thread, which reads the result after the wait. `lock_` guards `frames_`, `rate_` and
// `marks_`; it is never held while another lock is taken. Every member may be called from any
// thread.
class Marks {
 public:
  // Replaces the sample rate (22050 Hz until the first buffer says otherwise).
  void setRate(double rate);

  // Adds `count` frames to the frames written so far.
  void addFrames(int64_t count);

  // Records the range [loc, loc + len) with atMs = the integer part of frames / rate x 1000,
  // from the frames written so far: where the range's audio begins.
  void willSpeakRange(int64_t loc, int64_t len);

  MarksSnapshot snapshot() const;

 private:
  mutable std::mutex lock_;
  int64_t frames_ = 0;       // guarded by lock_
  double rate_ = 22050.0;    // guarded by lock_
  std::vector<Mark> marks_;  // guarded by lock_
};

// The integer part of frames / rate x 1000 (0 for a rate that is not positive). Pure.
int64_t millisecondsOf(int64_t frames, double rate);

}  // namespace tallowbrook::Speak
