// The PNG reader that decodes grey and colour PNGs straight to grey, against Leptonica's own
// reader and conversion to grey on files written here.
#include <png.h>
#include <unistd.h>

#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <leptonica/allheaders.h>

#include "ocr/tesseract/png_gray_reader.h"

namespace tallowbrook::VisionOCR {
namespace {

struct PixDeleter {
  void operator()(Pix* pix) const { pixDestroy(&pix); }
};
using PixPtr = std::unique_ptr<Pix, PixDeleter>;

// How a test image is stored.
struct PngLayout {
  int colorType = PNG_COLOR_TYPE_RGB;
  int depth = 8;
  bool interlaced = false;
  bool transparentColour = false;  // a tRNS chunk naming one colour
  int filters = PNG_ALL_FILTERS;   // the row filters the writer may choose from
};

int channelsOf(int colorType) {
  switch (colorType) {
    case PNG_COLOR_TYPE_GRAY_ALPHA:
      return 2;
    case PNG_COLOR_TYPE_RGB:
      return 3;
    case PNG_COLOR_TYPE_RGB_ALPHA:
      return 4;
    default:
      return 1;
  }
}

// libpng reports errors by longjmp: nothing with a destructor lives in this function.
bool writeRows(png_structp png, png_infop info, FILE* file, int width, int height,
               const PngLayout& layout, png_bytep* rows) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_init_io(png, file);
  png_set_compression_level(png, 1);
  png_set_filter(png, PNG_FILTER_TYPE_BASE, layout.filters);
  png_set_IHDR(png, info, png_uint_32(width), png_uint_32(height), layout.depth, layout.colorType,
               layout.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_color_16 transparent{};
  if (layout.transparentColour) png_set_tRNS(png, info, nullptr, 0, &transparent);
  png_write_info(png, info);
  png_write_image(png, rows);
  png_write_end(png, nullptr);
  return true;
}

// Writes `pixels` (rows of samples, one byte each, or two for a depth of 16) as a PNG file.
void writePng(const std::string& path, int width, int height, const PngLayout& layout,
              std::vector<uint8_t> pixels) {
  const size_t stride = pixels.size() / size_t(height);
  std::vector<png_bytep> rows;
  for (int y = 0; y < height; ++y) rows.push_back(pixels.data() + size_t(y) * stride);
  FILE* file = fopen(path.c_str(), "wb");
  ASSERT_NE(file, nullptr);
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  const bool written = writeRows(png, info, file, width, height, layout, rows.data());
  png_destroy_write_struct(&png, &info);
  fclose(file);
  ASSERT_TRUE(written) << path;
}

// What the recogniser's own path makes of a file in grey: Leptonica's reader, the colour map
// removed, colour to luminance.
PixPtr leptonicaGray(const std::string& path) {
  PixPtr read(pixRead(path.c_str()));
  if (!read) return nullptr;
  PixPtr pix(pixRemoveColormap(read.get(), REMOVE_CMAP_BASED_ON_SRC));
  if (!pix) return nullptr;
  if (pixGetDepth(pix.get()) == 32) return PixPtr(pixConvertRGBToLuminance(pix.get()));
  return PixPtr(pixConvertTo8(pix.get(), 0));
}

// The index of the first pixel where two 8-bit images differ; -1 when they are equal.
int64_t firstDifference(Pix* a, Pix* b) {
  const int width = pixGetWidth(a), height = pixGetHeight(a);
  if (width != pixGetWidth(b) || height != pixGetHeight(b) || pixGetDepth(a) != 8 ||
      pixGetDepth(b) != 8) {
    return 0;
  }
  for (int y = 0; y < height; ++y) {
    const l_uint32* lineA = pixGetData(a) + size_t(y) * pixGetWpl(a);
    const l_uint32* lineB = pixGetData(b) + size_t(y) * pixGetWpl(b);
    for (int x = 0; x < width; ++x) {
      if (GET_DATA_BYTE(lineA, x) != GET_DATA_BYTE(lineB, x)) return int64_t(y) * width + x;
    }
  }
  return -1;
}

// The index of the first pixel where two 32-bit images differ, alpha included; 0 when their
// sizes, depths, samples per pixel, formats or resolutions differ, -1 when they are equal.
int64_t firstColourDifference(Pix* a, Pix* b) {
  const int width = pixGetWidth(a), height = pixGetHeight(a);
  if (width != pixGetWidth(b) || height != pixGetHeight(b) || pixGetDepth(a) != 32 ||
      pixGetDepth(b) != 32 || pixGetSpp(a) != pixGetSpp(b) ||
      pixGetInputFormat(a) != pixGetInputFormat(b) || pixGetXRes(a) != pixGetXRes(b) ||
      pixGetYRes(a) != pixGetYRes(b)) {
    return 0;
  }
  for (int y = 0; y < height; ++y) {
    const l_uint32* lineA = pixGetData(a) + size_t(y) * pixGetWpl(a);
    const l_uint32* lineB = pixGetData(b) + size_t(y) * pixGetWpl(b);
    for (int x = 0; x < width; ++x) {
      if (lineA[x] != lineB[x]) return int64_t(y) * width + x;
    }
  }
  return -1;
}

class PngGrayReader : public testing::Test {
 protected:
  void SetUp() override {
    char folder[] = "/tmp/tallowbrook-png-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    dir_ = folder;
    setMsgSeverity(L_SEVERITY_NONE);
  }
  void TearDown() override {
    for (const auto& path : written_) unlink(path.c_str());
    rmdir(dir_.c_str());
  }
  std::string path(const std::string& name) {
    written_.push_back(dir_ + "/" + name);
    return written_.back();
  }

  // Reads `file` both ways and expects the same grey, exact or not as `exact` says; and for a
  // colour file, the same colour image as Leptonica's reader.
  void expectLeptonicaGray(const std::string& file, bool exact) {
    GrayPng png = readGrayPng(file);
    PixPtr ours(png.pix);
    ASSERT_TRUE(ours) << file;
    EXPECT_EQ(png.exact, exact) << file;
    PixPtr theirs = leptonicaGray(file);
    ASSERT_TRUE(theirs) << file;
    EXPECT_EQ(firstDifference(ours.get(), theirs.get()), -1) << file;
    PixPtr colour(colourImage(png));
    if (exact) {
      EXPECT_FALSE(png.colour) << file;
      EXPECT_FALSE(colour) << file;
      return;
    }
    ASSERT_TRUE(colour) << file;
    PixPtr read(pixRead(file.c_str()));
    ASSERT_TRUE(read) << file;
    EXPECT_EQ(firstColourDifference(colour.get(), read.get()), -1) << file;
  }

  std::string dir_;
  std::vector<std::string> written_;
};

TEST_F(PngGrayReader, EveryColourGivesLeptonicasLuminance) {
  // 4096 x 4096 pixels: each of the 2^24 colours once.
  const int side = 4096;
  std::vector<uint8_t> pixels(size_t(side) * side * 3);
  for (uint32_t colour = 0; colour < (1u << 24); ++colour) {
    pixels[3 * size_t(colour)] = uint8_t(colour >> 16);
    pixels[3 * size_t(colour) + 1] = uint8_t(colour >> 8);
    pixels[3 * size_t(colour) + 2] = uint8_t(colour);
  }
  const std::string file = path("colours.png");
  writePng(file, side, side, {PNG_COLOR_TYPE_RGB}, pixels);
  expectLeptonicaGray(file, false);
}

TEST_F(PngGrayReader, GreyPixelsInColourFilesAreExact) {
  std::mt19937 random(7);
  const int width = 301, height = 77;  // rows that do not fill whole words
  std::vector<uint8_t> levels(size_t(width) * height);
  for (auto& level : levels) level = uint8_t(random());
  for (int colorType : {PNG_COLOR_TYPE_GRAY, PNG_COLOR_TYPE_GRAY_ALPHA, PNG_COLOR_TYPE_RGB,
                        PNG_COLOR_TYPE_RGB_ALPHA}) {
    const int channels = channelsOf(colorType);
    const bool alpha =
        colorType == PNG_COLOR_TYPE_GRAY_ALPHA || colorType == PNG_COLOR_TYPE_RGB_ALPHA;
    std::vector<uint8_t> pixels;
    for (uint8_t level : levels) {
      for (int c = 0; c < channels - (alpha ? 1 : 0); ++c) pixels.push_back(level);
      if (alpha) pixels.push_back(255);
    }
    const std::string file = path("grey" + std::to_string(colorType) + ".png");
    writePng(file, width, height, {colorType}, pixels);
    expectLeptonicaGray(file, true);
    GrayPng png = readGrayPng(file);
    PixPtr pix(png.pix);
    ASSERT_TRUE(pix);
    EXPECT_EQ(GET_DATA_BYTE(pixGetData(pix.get()), 5), levels[5]);
  }
}

TEST_F(PngGrayReader, OneColouredOrTranslucentPixelMakesTheGreyInexact) {
  const int width = 64, height = 32;
  for (int colorType : {PNG_COLOR_TYPE_GRAY_ALPHA, PNG_COLOR_TYPE_RGB, PNG_COLOR_TYPE_RGB_ALPHA}) {
    const int channels = channelsOf(colorType);
    std::vector<uint8_t> pixels(size_t(width) * height * channels, 255);
    // The last pixel of the last row: a touch of blue, or not quite opaque.
    pixels.back() = 254;
    const std::string file = path("almost" + std::to_string(colorType) + ".png");
    writePng(file, width, height, {colorType}, pixels);
    expectLeptonicaGray(file, false);
    // The same in every pixel of that row.
    for (int x = 0; x < width; ++x) pixels[pixels.size() - 1 - size_t(x) * channels] = 254;
    const std::string row = path("row" + std::to_string(colorType) + ".png");
    writePng(row, width, height, {colorType}, pixels);
    expectLeptonicaGray(row, false);
  }
}

TEST_F(PngGrayReader, EveryRowFilterIsUndone) {
  std::mt19937 random(9);
  const int width = 97, height = 61;
  for (int colorType : {PNG_COLOR_TYPE_GRAY_ALPHA, PNG_COLOR_TYPE_RGB, PNG_COLOR_TYPE_RGB_ALPHA}) {
    const int channels = channelsOf(colorType);
    // Smooth shading with noise on it, and some rows of one colour.
    std::vector<uint8_t> pixels;
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        for (int c = 0; c < channels; ++c) {
          pixels.push_back(y % 7 == 3 ? uint8_t(40 * c + 30)
                                      : uint8_t(x * 2 + y * (c + 1) + int(random() % 9)));
        }
      }
    }
    for (int filter : {PNG_FILTER_NONE, PNG_FILTER_SUB, PNG_FILTER_UP, PNG_FILTER_AVG,
                       PNG_FILTER_PAETH, PNG_ALL_FILTERS}) {
      const std::string file =
          path("filter" + std::to_string(colorType) + "-" + std::to_string(filter) + ".png");
      writePng(file, width, height, {colorType, 8, false, false, filter}, pixels);
      expectLeptonicaGray(file, false);
    }
  }
}

TEST_F(PngGrayReader, RowsRepeatingTheRowAboveKeepItsGreyAndExactness) {
  // Bands of one row repeated, as a page's blank stretches are written with the filter that
  // adds the row above: grey bands, then (in the second file) one coloured band among them.
  std::mt19937 random(11);
  const int width = 53, height = 40;
  for (bool coloured : {false, true}) {
    for (int colorType : {PNG_COLOR_TYPE_RGB, PNG_COLOR_TYPE_RGB_ALPHA}) {
      const int channels = channelsOf(colorType);
      std::vector<uint8_t> pixels, row;
      for (int y = 0; y < height; ++y) {
        if (y % 8 == 0) {  // a new band
          row.clear();
          for (int x = 0; x < width; ++x) {
            const auto level = uint8_t(random());
            const bool colour = coloured && y == 16 && x == 20;
            row.insert(row.end(), {level, uint8_t(colour ? level ^ 1 : level), level});
            if (channels == 4) row.push_back(255);
          }
        }
        pixels.insert(pixels.end(), row.begin(), row.end());
      }
      const std::string file =
          path("bands" + std::to_string(colorType) + (coloured ? "-coloured" : "") + ".png");
      writePng(file, width, height, {colorType, 8, false, false, PNG_FILTER_UP}, pixels);
      expectLeptonicaGray(file, !coloured);
    }
  }
}

TEST_F(PngGrayReader, AlphaIsIgnoredAsLeptonicasConversionIgnoresIt) {
  std::mt19937 random(11);
  const int width = 257, height = 129;
  for (int colorType : {PNG_COLOR_TYPE_GRAY_ALPHA, PNG_COLOR_TYPE_RGB_ALPHA}) {
    std::vector<uint8_t> pixels(size_t(width) * height * channelsOf(colorType));
    for (auto& sample : pixels) sample = uint8_t(random());
    const std::string file = path("alpha" + std::to_string(colorType) + ".png");
    writePng(file, width, height, {colorType}, pixels);
    expectLeptonicaGray(file, false);
  }
}

TEST_F(PngGrayReader, OtherLayoutsAreLeftToLeptonica) {
  const int width = 40, height = 20;
  std::vector<uint8_t> rgb(size_t(width) * height * 3, 128);
  writePng(path("interlaced.png"), width, height, {PNG_COLOR_TYPE_RGB, 8, true}, rgb);
  writePng(path("transparent.png"), width, height, {PNG_COLOR_TYPE_RGB, 8, false, true}, rgb);
  std::vector<uint8_t> wide(size_t(width) * height * 6, 128);
  writePng(path("sixteen.png"), width, height, {PNG_COLOR_TYPE_RGB, 16}, wide);
  for (const char* name : {"interlaced.png", "transparent.png", "sixteen.png"}) {
    const std::string file = dir_ + "/" + name;
    GrayPng png = readGrayPng(file);
    EXPECT_EQ(png.pix, nullptr) << name;
    PixPtr decoded(pixRead(file.c_str()));
    EXPECT_TRUE(decoded) << name;  // the files themselves are sound
    pixDestroy(&png.pix);
  }
}

TEST_F(PngGrayReader, TruncatedColourFilesGiveNothingAtEveryLength) {
  std::mt19937 random(3);
  const int width = 48, height = 40;
  for (int colorType : {PNG_COLOR_TYPE_RGB, PNG_COLOR_TYPE_RGB_ALPHA, PNG_COLOR_TYPE_GRAY_ALPHA}) {
    std::vector<uint8_t> pixels(size_t(width) * height * channelsOf(colorType));
    for (auto& sample : pixels) sample = uint8_t(random() % 8 + 100);  // compresses, a little
    const std::string whole = path("whole" + std::to_string(colorType) + ".png");
    writePng(whole, width, height, {colorType}, pixels);
    std::ifstream in(whole, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ASSERT_GT(bytes.size(), 500u);
    GrayPng sound = readGrayPng(whole);
    ASSERT_NE(sound.pix, nullptr);
    pixDestroy(&sound.pix);
    // Every length that cuts the image data short, up to the 12 bytes of the closing chunk.
    const std::string cut = path("cut" + std::to_string(colorType) + ".png");
    for (size_t length = 0; length + 12 < bytes.size(); ++length) {
      std::ofstream(cut, std::ios::binary | std::ios::trunc)
          .write(bytes.data(), std::streamsize(length));
      GrayPng png = readGrayPng(cut);
      EXPECT_EQ(png.pix, nullptr) << colorType << " cut at " << length << " of " << bytes.size();
      pixDestroy(&png.pix);
    }
  }
}

TEST_F(PngGrayReader, DamagedBytesNeverCrash) {
  std::mt19937 random(5);
  const int width = 120, height = 90;
  std::vector<uint8_t> pixels(size_t(width) * height * 3);
  for (auto& sample : pixels) sample = uint8_t(random() % 16);
  const std::string whole = path("sound.png");
  writePng(whole, width, height, {PNG_COLOR_TYPE_RGB}, pixels);
  std::ifstream in(whole, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  const std::string damaged = path("damaged.png");
  for (int trial = 0; trial < 300; ++trial) {
    std::string copy = bytes;
    for (int flips = 0; flips < 4; ++flips)
      copy[random() % copy.size()] ^= char(1 + random() % 255);
    std::ofstream(damaged, std::ios::binary | std::ios::trunc)
        .write(copy.data(), std::streamsize(copy.size()));
    GrayPng png = readGrayPng(damaged);
    if (png.pix != nullptr) {  // what decodes is an image of the size the header gives
      EXPECT_EQ(pixGetDepth(png.pix), 8);
      pixDestroy(&png.pix);
    }
  }
}

}  // namespace
}  // namespace tallowbrook::VisionOCR
