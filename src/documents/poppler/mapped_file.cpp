#include "documents/poppler/mapped_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>

namespace tallowbrook::Pdf {

MappedFile::MappedFile(const std::string& path) {
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return;
  struct stat info {};
  // Poppler takes the length as an int.
  if (fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0 &&
      info.st_size <= INT_MAX) {
    void* bytes = mmap(nullptr, size_t(info.st_size), PROT_READ, MAP_PRIVATE, fd, 0);
    if (bytes != MAP_FAILED) {
      data_ = static_cast<const char*>(bytes);
      size_ = size_t(info.st_size);
    }
  }
  close(fd);
}

MappedFile::~MappedFile() {
  if (data_) munmap(const_cast<char*>(data_), size_);
}

}  // namespace tallowbrook::Pdf
