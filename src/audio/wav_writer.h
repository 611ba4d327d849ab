// WavWriter: one growing 16-bit PCM WAV file (a recording, or rendered speech).
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>

#include "audio/wav_file.h"

namespace tallowbrook {

// Writes a WAV file whose header is kept valid while it grows: the file starts with a header
// claiming no data, samples are appended as they arrive, the header is rewritten on request
// (so a file left behind by a crash reads as a valid recording up to the last rewrite), and
// `finish()` writes the final header, syncs and closes.
//
// Shared (through std::shared_ptr) by the threads that deliver samples, the timer that
// rewrites the header and the stop path; every member may be called from any thread. `lock_`
// guards `frames_`, `closed_` and every use of the file. The writer prints nothing: a failed
// write goes to the reporter its owner gave it, which the writer calls with no lock of its own
// held.
class WavWriter {
 public:
  static constexpr size_t kHeaderBytes = 44;
  using Header = std::array<uint8_t, kHeaderBytes>;

  // The 44-byte header of a 16-bit PCM file: the one definition of the layout. Every field is
  // computed in signed 64-bit arithmetic and stored as its low 32 (or 16) bits, little-endian:
  // sizes past 4 GiB wrap, they are not clamped. An overflow of channels x 2, dataBytes + 36
  // or sampleRate x channels x 2 in 64 bits is a programming error and aborts. Pure.
  static Header header(int64_t sampleRate, int64_t channels, int64_t dataBytes);

  // Told the reason ("No space left on device") of each append that failed, on the thread that
  // called append, after the writer's lock is released.
  using Reporter = std::function<void(const std::string& reason)>;

  // Creates the file at `path` with permissions 0600 (an existing file, link or special file
  // at that path is replaced by a new regular file) and writes a header claiming no data.
  // Throws Error "could not create <path>" or "could not open <path> for writing", or
  // std::system_error when the first header cannot be written. Without a reporter, failed
  // appends are dropped unreported (the header still counts only whole blocks).
  WavWriter(std::string path, int64_t sampleRate, int64_t channels, Reporter reporter = nullptr);

  // As above, writing through `file` (already created and empty) instead of a new file at
  // `path`, which is then only the writer's name for it.
  WavWriter(std::unique_ptr<WavFile> file, std::string path, int64_t sampleRate, int64_t channels,
            Reporter reporter = nullptr);

  // Closes the file without rewriting the header: a writer dropped without `finish()` leaves
  // the header that was last written.
  ~WavWriter();

  WavWriter(const WavWriter&) = delete;
  WavWriter& operator=(const WavWriter&) = delete;

  // Writes `samples` at the end of the data. An empty block returns at once without taking
  // the lock; after `finish()` samples are discarded. On success `frames` grows by
  // size / channels (rounded down). A failed write leaves `frames` as it was, moves the write
  // position back to where the block began, and tells the reporter why once the lock is
  // released. Never throws (but what the reporter throws).
  void append(std::span<const int16_t> samples);

  // Takes the writer's lock, for `frames` and `writeHeaderLocked`. Must not be called while
  // holding `Out::lock()` or this writer's lock.
  [[nodiscard]] std::unique_lock<std::mutex> hold();

  // Frames written so far (samples / channels). `held` must be a lock from `hold()`.
  int64_t frames(const std::unique_lock<std::mutex>& held) const;

  // Rewrites the header for the data written so far, leaving the write position at the end of
  // the data; does nothing once finished. Failures are ignored. `held` must be a lock from
  // `hold()` (a different lock aborts).
  void writeHeaderLocked(const std::unique_lock<std::mutex>& held);

  // Writes the final header, cuts off any bytes past the end of the last block written in full
  // (left by a write that failed part-way), syncs the file to disk and closes it; failures are
  // ignored. Idempotent.
  void finish();

  const std::string& path() const { return path_; }
  int64_t sampleRate() const { return sampleRate_; }
  int64_t channels() const { return channels_; }

 private:
  void checkHeld(const std::unique_lock<std::mutex>& held) const;

  std::unique_ptr<WavFile> file_;  // guarded by lock_; null once finished
  const Reporter reporter_;
  mutable std::mutex lock_;
  int64_t frames_ = 0;   // guarded by lock_
  bool closed_ = false;  // guarded by lock_
  const int64_t sampleRate_;
  const int64_t channels_;
  const std::string path_;
};

}  // namespace tallowbrook
