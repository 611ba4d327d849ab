#include "audio/wav_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/error.h"

namespace tallowbrook {
namespace {

// A file descriptor opened by createWavFile.
class PosixWavFile : public WavFile {
 public:
  explicit PosixWavFile(int fd) : fd_(fd) {}
  ~PosixWavFile() override { ::close(fd_); }
  PosixWavFile(const PosixWavFile&) = delete;
  PosixWavFile& operator=(const PosixWavFile&) = delete;

  int write(const void* data, size_t size) override {
    const auto* p = static_cast<const uint8_t*>(data);
    while (size > 0) {
      ssize_t n = ::write(fd_, p, size);
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

  int writeAt(const void* data, size_t size, int64_t offset) override {
    const auto* p = static_cast<const uint8_t*>(data);
    while (size > 0) {
      ssize_t n = ::pwrite(fd_, p, size, off_t(offset));
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

  int64_t position() override { return ::lseek(fd_, 0, SEEK_CUR); }
  int seek(int64_t offset) override {
    return ::lseek(fd_, off_t(offset), SEEK_SET) < 0 ? errno : 0;
  }
  int truncate(int64_t size) override { return ::ftruncate(fd_, off_t(size)) < 0 ? errno : 0; }
  int sync() override { return ::fsync(fd_) < 0 ? errno : 0; }

 private:
  const int fd_;
};

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

std::unique_ptr<WavFile> createWavFile(const std::string& path) {
  if (!createEmptyFile(path)) throw Error("could not create " + path);
  const int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW);
  if (fd < 0) throw Error("could not open " + path + " for writing");
  return std::make_unique<PosixWavFile>(fd);
}

}  // namespace tallowbrook
