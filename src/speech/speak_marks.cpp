#include "speech/speak_marks.h"

#include <cmath>

namespace tallowbrook::Speak {

int64_t millisecondsOf(int64_t frames, double rate) {
  if (!(rate > 0)) return 0;
  return static_cast<int64_t>(std::trunc(static_cast<double>(frames) / rate * 1000.0));
}

void Marks::setRate(double rate) {
  std::lock_guard<std::mutex> held(lock_);
  rate_ = rate;
}

void Marks::addFrames(int64_t count) {
  std::lock_guard<std::mutex> held(lock_);
  frames_ += count;
}

void Marks::willSpeakRange(int64_t loc, int64_t len) {
  std::lock_guard<std::mutex> held(lock_);
  marks_.push_back(Mark{millisecondsOf(frames_, rate_), loc, len});
}

MarksSnapshot Marks::snapshot() const {
  std::lock_guard<std::mutex> held(lock_);
  return MarksSnapshot{frames_, rate_, marks_};
}

}  // namespace tallowbrook::Speak
