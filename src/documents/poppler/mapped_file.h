// A file's bytes mapped into memory, read-only, for as long as the object lives. Poppler reads
// a document from memory without the many small reads it makes through a file.
#pragma once

#include <cstddef>
#include <string>

namespace tallowbrook::Pdf {

class MappedFile {
 public:
  // Maps the regular file at `path`. Empty (data() null) when it cannot be opened, is not a
  // regular file, or is empty.
  explicit MappedFile(const std::string& path);
  ~MappedFile();
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;

  const char* data() const { return data_; }
  size_t size() const { return size_; }

 private:
  const char* data_ = nullptr;
  size_t size_ = 0;
};

}  // namespace tallowbrook::Pdf
