// Small helpers for the recording tests: a scratch folder, whole-file reads, little-endian
// fields, test signals.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numbers>
#include <string>
#include <vector>

namespace audio_test {

// A fresh folder under /tmp, removed with everything in it when the object goes.
class TempDir {
 public:
  TempDir() {
    char name[] = "/tmp/tallowbrook-audio-XXXXXX";
    path_ = mkdtemp(name) ? name : "";
  }
  ~TempDir() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  std::string file(const std::string& name) const { return path_ + "/" + name; }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

inline std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

inline uint32_t le32(const std::string& bytes, size_t at) {
  uint32_t v = 0;
  for (size_t i = 0; i < 4; ++i) v |= uint32_t(uint8_t(bytes.at(at + i))) << (8 * i);
  return v;
}

inline uint16_t le16(const std::string& bytes, size_t at) {
  return uint16_t(uint8_t(bytes.at(at)) | uint8_t(bytes.at(at + 1)) << 8);
}

// The 16-bit samples stored from byte `from` on.
inline std::vector<int16_t> samplesFrom(const std::string& bytes, size_t from) {
  std::vector<int16_t> out;
  for (size_t i = from; i + 1 < bytes.size(); i += 2) out.push_back(int16_t(le16(bytes, i)));
  return out;
}

// `count` samples of a sine of `hz` at `rate`, amplitude `amplitude` of full scale.
inline std::vector<int16_t> sine(size_t count, double hz, double rate, double amplitude = 0.5) {
  std::vector<int16_t> out(count);
  for (size_t i = 0; i < count; ++i) {
    out[i] =
        int16_t(std::lround(amplitude * 32767 * std::sin(2 * std::numbers::pi * hz * i / rate)));
  }
  return out;
}

}  // namespace audio_test
