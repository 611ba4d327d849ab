#include "record/wav_writer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "cli/out.h"
#include "record/checked_math.h"
#include "record/record_error.h"

namespace tallowbrook {
namespace {

void putU32(WavWriter::Header& h, size_t at, int64_t value) {
  auto v = static_cast<uint64_t>(value);  // two's complement: keeps the low bits of negatives
  for (size_t i = 0; i < 4; ++i) h[at + i] = static_cast<uint8_t>(v >> (8 * i));
}

void putU16(WavWriter::Header& h, size_t at, int64_t value) {
  auto v = static_cast<uint64_t>(value);
  h[at] = static_cast<uint8_t>(v);
  h[at + 1] = static_cast<uint8_t>(v >> 8);
}

void putTag(WavWriter::Header& h, size_t at, const char (&tag)[5]) {
  for (size_t i = 0; i < 4; ++i) h[at + i] = static_cast<uint8_t>(tag[i]);
}

// Writes all of `size` bytes at the descriptor's position. Returns 0 or the errno of the
// failure (bytes before it may have been written).
int writeAll(int fd, const void* data, size_t size) {
  const auto* p = static_cast<const uint8_t*>(data);
  while (size > 0) {
    ssize_t n = ::write(fd, p, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    if (n == 0) return EIO;
    p += n;
    size -= static_cast<size_t>(n);
  }
  return 0;
}

// As writeAll, at `offset`, leaving the descriptor's position where it was.
int writeAllAt(int fd, const void* data, size_t size, off_t offset) {
  const auto* p = static_cast<const uint8_t*>(data);
  while (size > 0) {
    ssize_t n = ::pwrite(fd, p, size, offset);
    if (n < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    if (n == 0) return EIO;
    p += n;
    offset += n;
    size -= static_cast<size_t>(n);
  }
  return 0;
}

// A new, empty regular file at `path` with permissions 0600, replacing whatever was there
// (a file, a link, a pipe). A directory is not replaced.
bool createEmptyFile(const std::string& path) {
  // Something that cannot be removed (a directory, an entry in a read-only folder) stays,
  // and the exclusive creation below fails.
  (void)::unlink(path.c_str());
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd < 0) return false;
  bool ok = ::fchmod(fd, 0600) == 0;  // exactly 0600 whatever the umask
  ::close(fd);
  return ok;
}

}  // namespace

WavWriter::Header WavWriter::header(int64_t sampleRate, int64_t channels, int64_t dataBytes) {
  const int64_t blockAlign = checkedMul(channels, 2);
  const int64_t riffSize = checkedAdd(dataBytes, 36);
  const int64_t byteRate = checkedMul(checkedMul(sampleRate, channels), 2);

  Header h{};
  putTag(h, 0, "RIFF");
  putU32(h, 4, riffSize);
  putTag(h, 8, "WAVE");
  putTag(h, 12, "fmt ");
  putU32(h, 16, 16);
  putU16(h, 20, 1);  // integer PCM
  putU16(h, 22, channels);
  putU32(h, 24, sampleRate);
  putU32(h, 28, byteRate);
  putU16(h, 32, blockAlign);
  putU16(h, 34, 16);
  putTag(h, 36, "data");
  putU32(h, 40, dataBytes);
  return h;
}

WavWriter::WavWriter(std::string path, int64_t sampleRate, int64_t channels)
    : sampleRate_(sampleRate), channels_(channels), path_(std::move(path)) {
  if (!createEmptyFile(path_)) throw RecordError{"could not create " + path_};
  fd_ = ::open(path_.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW);
  if (fd_ < 0) throw RecordError{"could not open " + path_ + " for writing"};
  const Header first = header(sampleRate_, channels_, 0);
  if (int error = writeAll(fd_, first.data(), first.size())) {
    ::close(fd_);
    fd_ = -1;
    throw std::system_error(error, std::system_category());
  }
}

WavWriter::~WavWriter() {
  if (fd_ >= 0) ::close(fd_);
}

void WavWriter::append(std::span<const int16_t> samples) {
  if (samples.empty()) return;
  // Samples are stored in native order, which is the file's little-endian order.
  std::lock_guard<std::mutex> held(lock_);
  if (closed_) return;
  const off_t start = ::lseek(fd_, 0, SEEK_CUR);
  const int error = writeAll(fd_, samples.data(), samples.size_bytes());
  if (error == 0) {
    frames_ += static_cast<int64_t>(samples.size()) / channels_;
    return;
  }
  // Drop any part of the block that did get written, so the next append continues where the
  // counted data ends and the samples stay aligned with the header.
  if (start >= 0) ::lseek(fd_, start, SEEK_SET);
  std::lock_guard<std::mutex> out(Out::lock());
  writeJsonLineLocked(Json{{"type", "record-warning"},
                           {"message", "a write to the recording failed: " +
                                           std::system_category().message(error)}},
                      out);
}

std::unique_lock<std::mutex> WavWriter::hold() {
  return std::unique_lock<std::mutex>(lock_);
}

void WavWriter::checkHeld(const std::unique_lock<std::mutex>& held) const {
  if (held.mutex() != &lock_ || !held.owns_lock()) std::abort();
}

int64_t WavWriter::frames(const std::unique_lock<std::mutex>& held) const {
  checkHeld(held);
  return frames_;
}

void WavWriter::writeHeaderLocked(const std::unique_lock<std::mutex>& held) {
  checkHeld(held);
  if (closed_) return;
  const int64_t dataBytes = checkedMul(checkedMul(frames_, channels_), 2);
  const Header h = header(sampleRate_, channels_, dataBytes);
  // A positioned write: the append position stays at the end of the data.
  (void)writeAllAt(fd_, h.data(), h.size(), 0);
}

void WavWriter::finish() {
  auto held = hold();
  if (closed_) return;
  writeHeaderLocked(held);
  // A block that failed part-way (a full disk) may have left bytes past the write position,
  // which is where the data written in full ends: cut them off.
  const off_t end = ::lseek(fd_, 0, SEEK_CUR);
  if (end >= off_t(kHeaderBytes)) (void)::ftruncate(fd_, end);
  (void)::fsync(fd_);
  (void)::close(fd_);
  fd_ = -1;
  closed_ = true;
}

}  // namespace tallowbrook
