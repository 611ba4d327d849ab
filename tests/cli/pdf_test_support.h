// Shared by the pdf-page and pdf-text CLI tests: fixture and corpus paths, a scratch folder,
// and reading the images the helper and its peer pdftoppm write.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "run_helper.h"

namespace pdf_test {

// A PDF written by tests/fixtures/pdf_fixtures.py.
std::string fixture(const std::string& name);

// The shared corpus folder of PDFs, and its PDF file names, sorted.
std::string corpusDir();
std::vector<std::string> corpusFiles();

// A scratch folder removed with its files when the object goes.
class ScratchDir {
 public:
  ScratchDir();
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// An 8-bit RGB image, rows top to bottom.
struct Image {
  int width = 0;
  int height = 0;
  std::vector<uint8_t> rgb;
  const uint8_t* pixel(int x, int y) const { return &rgb[(size_t(y) * size_t(width) + x) * 3]; }
};

// The PNG file at `path` decoded (with every checksum checked), or nothing when it does not
// decode.
std::optional<Image> readPng(const std::string& path);

// The binary PPM (P6) file at `path`, as pdftoppm writes it, or nothing.
std::optional<Image> readPpm(const std::string& path);

// Peak signal-to-noise ratio of two images of the same size, in dB (99 when identical).
double psnr(const Image& a, const Image& b);

// The helper run with a bounded address space (3 GiB) and a 10-second limit.
HelperRun runBounded(const std::vector<std::string>& args);

// The file's bytes.
std::string slurp(const std::string& path);

}  // namespace pdf_test
