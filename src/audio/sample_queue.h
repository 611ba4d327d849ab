// SampleQueue: a first-in first-out queue of samples in one contiguous buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "audio/samples.h"

namespace tallowbrook {

// Samples held oldest first in one buffer with a read offset: appending copies the new
// samples once, taking from the front only moves the offset, and the consumed front is cut
// off (one memmove) only once it is at least as long as what remains, so each sample is
// moved a bounded number of times. Not thread-safe: its owner guards it.
class SampleQueue {
 public:
  size_t size() const { return buffer_.size() - head_; }

  // The queued samples, oldest first; valid until the next change.
  std::span<const int16_t> view() const { return std::span<const int16_t>(buffer_).subspan(head_); }

  void append(std::span<const int16_t> samples);

  // Removes the oldest min(n, size()) samples.
  void dropFront(size_t n);

  // Drops the oldest samples beyond the newest `keep`.
  void keepNewest(size_t keep);

  // Puts `n` zero samples in front of the oldest.
  void prependZeros(size_t n);

  void clear();

 private:
  Samples buffer_;
  size_t head_ = 0;  // index of the oldest queued sample in buffer_
};

}  // namespace tallowbrook
