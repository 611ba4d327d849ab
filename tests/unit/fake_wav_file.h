// An in-memory WavFile for tests: a disk that fills up at `capacity` bytes, so write failures
// need no fork, file-size limit or real full disk.
#pragma once

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>

#include "audio/wav_file.h"

namespace audio_test {

// What a FakeWavFile holds; shared so the test still reads it once the writer closed the file.
struct FakeDisk {
  std::mutex lock;      // the writer calls the file under its own lock; tests read concurrently
  std::string bytes;    // guarded by lock
  int syncs = 0;        // guarded by lock
  bool closed = false;  // guarded by lock

  std::string read() {
    std::lock_guard<std::mutex> held(lock);
    return bytes;
  }
};

class FakeWavFile : public tallowbrook::WavFile {
 public:
  // A file that takes at most `capacity` bytes; a write past it writes what fits, then fails
  // with ENOSPC, as a full disk does.
  FakeWavFile(std::shared_ptr<FakeDisk> disk, size_t capacity)
      : disk_(std::move(disk)), capacity_(capacity) {}
  ~FakeWavFile() override {
    std::lock_guard<std::mutex> held(disk_->lock);
    disk_->closed = true;
  }

  int write(const void* data, size_t size) override {
    const int error = put(data, size, position_);
    return error;
  }
  int writeAt(const void* data, size_t size, int64_t offset) override {
    const int64_t saved = position_;
    const int error = put(data, size, offset);
    position_ = saved;
    return error;
  }
  int64_t position() override { return position_; }
  int seek(int64_t offset) override {
    position_ = offset;
    return 0;
  }
  int truncate(int64_t size) override {
    std::lock_guard<std::mutex> held(disk_->lock);
    disk_->bytes.resize(size_t(size));
    return 0;
  }
  int sync() override {
    std::lock_guard<std::mutex> held(disk_->lock);
    ++disk_->syncs;
    return 0;
  }

 private:
  // Writes at `offset`, leaving position_ after what was written.
  int put(const void* data, size_t size, int64_t offset) {
    std::lock_guard<std::mutex> held(disk_->lock);
    const size_t at = size_t(offset);
    const size_t fits = at >= capacity_ ? 0 : std::min(size, capacity_ - at);
    if (disk_->bytes.size() < at + fits) disk_->bytes.resize(at + fits);
    if (fits > 0) std::memcpy(disk_->bytes.data() + at, data, fits);
    position_ = offset + int64_t(fits);
    return fits == size ? 0 : ENOSPC;
  }

  const std::shared_ptr<FakeDisk> disk_;
  const size_t capacity_;
  int64_t position_ = 0;  // guarded by the writer's lock
};

}  // namespace audio_test
