// The PNG writer of the PDF module: files that decode to the pixels given.
#include "documents/poppler/png_writer.h"

#include <spng.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <optional>
#include <vector>

#include <gtest/gtest.h>

namespace tallowbrook::Pdf {
namespace {

struct Decoded {
  spng_ihdr header{};
  std::vector<uint8_t> rgb;
};

// The file decoded to RGB with every checksum checked; an empty result when it does not decode.
Decoded decode(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  Decoded decoded;
  spng_ctx* ctx = spng_ctx_new(0);
  size_t size = 0;
  if (spng_set_png_buffer(ctx, bytes.data(), bytes.size()) == 0 &&
      spng_get_ihdr(ctx, &decoded.header) == 0 &&
      spng_decoded_image_size(ctx, SPNG_FMT_RGB8, &size) == 0) {
    decoded.rgb.resize(size);
    if (spng_decode_image(ctx, decoded.rgb.data(), size, SPNG_FMT_RGB8, 0) != 0) {
      decoded.rgb.clear();
    }
  }
  spng_ctx_free(ctx);
  return decoded;
}

// The kind of the DocumentError that writing `bitmap` to `path` throws; nothing when it writes.
std::optional<DocumentError::Kind> failureOf(const Bitmap& bitmap, const std::string& path) {
  try {
    writePng(bitmap, path);
  } catch (const DocumentError& error) {
    return error.kind();
  }
  return std::nullopt;
}

class PngWriterTest : public ::testing::Test {
 protected:
  PngWriterTest() {
    char pattern[] = "/tmp/tallowbrook-png-XXXXXX";
    dir_ = mkdtemp(pattern);
    path_ = dir_ + "/out.png";
  }
  ~PngWriterTest() override {
    unlink(path_.c_str());
    rmdir(dir_.c_str());
  }
  std::string dir_;
  std::string path_;
};

// A width x height RGB bitmap with `stride` bytes per row (padding filled with 0xAB).
std::vector<uint8_t> pixels(int width, int height, int stride, bool grey) {
  std::vector<uint8_t> data(size_t(stride) * size_t(height), 0xAB);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      uint8_t* p = &data[size_t(y) * size_t(stride) + size_t(x) * 3];
      uint8_t v = uint8_t(x * 7 + y * 13);
      p[0] = v;
      p[1] = grey ? v : uint8_t(v + 1);
      p[2] = grey ? v : uint8_t(255 - v);
    }
  }
  return data;
}

void expectSamePixels(const std::vector<uint8_t>& data, int width, int height, int stride,
                      const Decoded& decoded) {
  ASSERT_EQ(decoded.rgb.size(), size_t(width) * size_t(height) * 3);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width * 3; ++x) {
      ASSERT_EQ(decoded.rgb[size_t(y) * size_t(width) * 3 + size_t(x)],
                data[size_t(y) * size_t(stride) + size_t(x)])
          << x / 3 << "," << y;
    }
  }
}

TEST_F(PngWriterTest, ColourPixelsRoundTripAsRgb) {
  auto data = pixels(37, 19, 37 * 3 + 5, false);
  ASSERT_NO_THROW(writePng(Bitmap{data.data(), 37, 19, 37 * 3 + 5}, path_));
  Decoded decoded = decode(path_);
  EXPECT_EQ(decoded.header.width, 37u);
  EXPECT_EQ(decoded.header.height, 19u);
  EXPECT_EQ(decoded.header.color_type, SPNG_COLOR_TYPE_TRUECOLOR);
  EXPECT_EQ(decoded.header.bit_depth, 8);
  expectSamePixels(data, 37, 19, 37 * 3 + 5, decoded);
}

TEST_F(PngWriterTest, GreyPixelsAreWrittenAsGreyscale) {
  auto data = pixels(40, 30, 120, true);
  ASSERT_NO_THROW(writePng(Bitmap{data.data(), 40, 30, 120}, path_));
  Decoded decoded = decode(path_);
  EXPECT_EQ(decoded.header.color_type, SPNG_COLOR_TYPE_GRAYSCALE);
  expectSamePixels(data, 40, 30, 120, decoded);
}

TEST_F(PngWriterTest, OneColouredPixelMakesTheImageRgb) {
  auto data = pixels(8, 8, 24, true);
  data[5 * 24 + 3 * 3 + 2] ^= 1;
  ASSERT_NO_THROW(writePng(Bitmap{data.data(), 8, 8, 24}, path_));
  Decoded decoded = decode(path_);
  EXPECT_EQ(decoded.header.color_type, SPNG_COLOR_TYPE_TRUECOLOR);
  expectSamePixels(data, 8, 8, 24, decoded);
}

TEST_F(PngWriterTest, AFileThatCannotBeCreated) {
  auto data = pixels(4, 4, 12, false);
  EXPECT_EQ(failureOf(Bitmap{data.data(), 4, 4, 12}, dir_ + "/no/such/dir.png"),
            DocumentError::Kind::cannotCreate);
  EXPECT_EQ(failureOf(Bitmap{data.data(), 4, 4, 12}, dir_), DocumentError::Kind::cannotCreate);
}

TEST_F(PngWriterTest, AFullDiskFailsTheWrite) {
  ASSERT_EQ(access("/dev/full", W_OK), 0);
  auto data = pixels(64, 64, 192, false);
  EXPECT_EQ(failureOf(Bitmap{data.data(), 64, 64, 192}, "/dev/full"),
            DocumentError::Kind::writeFailed);
}

}  // namespace
}  // namespace tallowbrook::Pdf
