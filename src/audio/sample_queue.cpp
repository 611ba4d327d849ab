#include "audio/sample_queue.h"

#include <algorithm>

namespace tallowbrook {

void SampleQueue::append(std::span<const int16_t> samples) {
  if (head_ > 0 && head_ >= size()) {
    // The consumed front is at least as long as the rest: cut it off before growing.
    buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<ptrdiff_t>(head_));
    head_ = 0;
  }
  buffer_.insert(buffer_.end(), samples.begin(), samples.end());
}

void SampleQueue::dropFront(size_t n) {
  head_ += std::min(n, size());
  if (head_ == buffer_.size()) clear();
}

void SampleQueue::keepNewest(size_t keep) {
  if (size() > keep) dropFront(size() - keep);
}

void SampleQueue::prependZeros(size_t n) {
  if (n <= head_) {
    head_ -= n;
    std::fill_n(buffer_.begin() + static_cast<ptrdiff_t>(head_), n, int16_t(0));
    return;
  }
  buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<ptrdiff_t>(head_));
  buffer_.insert(buffer_.begin(), n, int16_t(0));
  head_ = 0;
}

void SampleQueue::clear() {
  buffer_.clear();
  head_ = 0;
}

}  // namespace tallowbrook
