#include "pdf_test_support.h"

#include <dirent.h>
#include <spng.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>

namespace pdf_test {

std::string fixture(const std::string& name) {
  return std::string(PDF_FIXTURES_DIR) + "/" + name;
}

std::string corpusDir() {
  return std::string(PDF_CORPORA_DIR) + "/pdf";
}

std::vector<std::string> corpusFiles() {
  std::vector<std::string> names;
  if (DIR* dir = opendir(corpusDir().c_str())) {
    while (dirent* entry = readdir(dir)) {
      std::string name = entry->d_name;
      if (name.size() > 4 && name.ends_with(".pdf")) names.push_back(name);
    }
    closedir(dir);
  }
  std::sort(names.begin(), names.end());
  return names;
}

ScratchDir::ScratchDir() {
  char pattern[] = "/tmp/tallowbrook-pdf-XXXXXX";
  path_ = mkdtemp(pattern);
}

ScratchDir::~ScratchDir() {
  if (DIR* dir = opendir(path_.c_str())) {
    while (dirent* entry = readdir(dir)) {
      std::string name = entry->d_name;
      if (name != "." && name != "..") unlink((path_ + "/" + name).c_str());
    }
    closedir(dir);
  }
  rmdir(path_.c_str());
}

std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::optional<Image> readPng(const std::string& path) {
  std::string bytes = slurp(path);
  spng_ctx* ctx = spng_ctx_new(0);
  if (!ctx) return std::nullopt;
  std::optional<Image> image;
  spng_ihdr header{};
  size_t size = 0;
  if (spng_set_png_buffer(ctx, bytes.data(), bytes.size()) == 0 &&
      spng_get_ihdr(ctx, &header) == 0 && spng_decoded_image_size(ctx, SPNG_FMT_RGB8, &size) == 0) {
    Image decoded;
    decoded.width = int(header.width);
    decoded.height = int(header.height);
    decoded.rgb.resize(size);
    if (spng_decode_image(ctx, decoded.rgb.data(), size, SPNG_FMT_RGB8, 0) == 0) {
      image = std::move(decoded);
    }
  }
  spng_ctx_free(ctx);
  return image;
}

std::optional<Image> readPpm(const std::string& path) {
  FILE* file = fopen(path.c_str(), "rb");
  if (!file) return std::nullopt;
  Image image;
  int maxValue = 0;
  std::optional<Image> result;
  if (fscanf(file, "P6 %d %d %d", &image.width, &image.height, &maxValue) == 3 && maxValue == 255 &&
      fgetc(file) != EOF) {
    image.rgb.resize(size_t(image.width) * size_t(image.height) * 3);
    if (fread(image.rgb.data(), 1, image.rgb.size(), file) == image.rgb.size()) {
      result = std::move(image);
    }
  }
  fclose(file);
  return result;
}

double psnr(const Image& a, const Image& b) {
  double sum = 0;
  for (size_t i = 0; i < a.rgb.size() && i < b.rgb.size(); ++i) {
    double d = double(a.rgb[i]) - double(b.rgb[i]);
    sum += d * d;
  }
  if (sum == 0) return 99;
  double mse = sum / double(a.rgb.size());
  return 10 * std::log10(255.0 * 255.0 / mse);
}

HelperRun runBounded(const std::vector<std::string>& args) {
  std::vector<std::string> argv = {"/bin/sh", "-c", "ulimit -v 3145728 && exec \"$0\" \"$@\"",
                                   HELPER_PATH};
  argv.insert(argv.end(), args.begin(), args.end());
  RunOptions options;
  options.timeoutMs = 10000;
  return runProgram(argv, options);
}

}  // namespace pdf_test
