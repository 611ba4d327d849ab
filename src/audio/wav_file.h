// WavFile: the file under a WAV writer, as an interface so tests can make writes fail (a full
// disk, a broken device) without a real disk or a file-size limit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace tallowbrook {

// An open file with a write position. Every call returns 0 or the errno of its failure; a
// failed write may have written part of its bytes. Not thread-safe: the WAV writer calls it
// under its own lock.
class WavFile {
 public:
  virtual ~WavFile() = default;

  // Writes all of `size` bytes at the write position and moves it past them.
  virtual int write(const void* data, size_t size) = 0;
  // Writes all of `size` bytes at `offset`, leaving the write position where it was.
  virtual int writeAt(const void* data, size_t size, int64_t offset) = 0;
  // The write position, or -1 when it cannot be told.
  virtual int64_t position() = 0;
  // Moves the write position to `offset`.
  virtual int seek(int64_t offset) = 0;
  // Cuts the file to `size` bytes.
  virtual int truncate(int64_t size) = 0;
  // Flushes the file to the disk.
  virtual int sync() = 0;
};

// Creates a new, empty regular file at `path` with permissions exactly 0600 (replacing a file,
// link or special file there; never a directory) and opens it for writing. Throws Error
// "could not create <path>" or "could not open <path> for writing". The file is closed when the
// object is destroyed.
std::unique_ptr<WavFile> createWavFile(const std::string& path);

}  // namespace tallowbrook
