#include "ocr/tesseract/png_gray_reader.h"

#include <png.h>

#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include <leptonica/allheaders.h>

namespace tallowbrook::VisionOCR {
namespace {

struct FileCloser {
  void operator()(FILE* file) const { fclose(file); }
};

struct PngReader {
  png_structp png = nullptr;
  png_infop info = nullptr;
  ~PngReader() { png_destroy_read_struct(&png, info != nullptr ? &info : nullptr, nullptr); }
};

// libpng's report of a damaged file goes nowhere: the caller falls back on Leptonica's reader.
[[noreturn]] void quietError(png_structp png, png_const_charp) {
  png_longjmp(png, 1);
}
void quietWarning(png_structp, png_const_charp) {}

// The grey Leptonica's pixConvertRGBToLuminance makes of one colour, computed as it does (in
// single precision, rounded half up).
inline uint8_t luminance(l_int32 red, l_int32 green, l_int32 blue) {
  return uint8_t(l_int32(L_RED_WEIGHT * red + L_GREEN_WEIGHT * green + L_BLUE_WEIGHT * blue + 0.5));
}

// One row of `width` pixels of `channels` bytes each (grey, grey+alpha, RGB or RGBA) to grey in
// `gray`; false when some pixel of it is coloured or not opaque. A run of one colour is
// converted once.
bool rowToGray(const png_byte* row, int width, int channels, uint8_t* gray) {
  if (channels == 1) {
    std::memcpy(gray, row, size_t(width));
    return true;
  }
  bool exact = true;
  if (channels == 2) {
    for (int x = 0; x < width; ++x) {
      gray[x] = row[2 * size_t(x)];
      exact &= row[2 * size_t(x) + 1] == 255;
    }
    return exact;
  }
  uint32_t last = 0xffffffff;  // no colour of three bytes
  uint8_t lastGray = 0;
  for (int x = 0; x < width; ++x) {
    const png_byte* p = row + size_t(channels) * size_t(x);
    if (channels == 4) exact &= p[3] == 255;
    const uint32_t colour = uint32_t(p[0]) << 16 | uint32_t(p[1]) << 8 | p[2];
    if (colour != last) {
      last = colour;
      exact &= p[0] == p[1] && p[1] == p[2];
      lastGray = luminance(p[0], p[1], p[2]);
    }
    gray[x] = lastGray;
  }
  return exact;
}

// Copies a row of grey bytes into a line of an 8-bit image.
void storeRow(const uint8_t* gray, int width, l_uint32* line) {
  // Leptonica keeps four pixels in a 32-bit word, the first in its most significant byte.
  const int words = width / 4;
  for (int i = 0; i < words; ++i) {
    uint32_t word = 0;
    std::memcpy(&word, gray + 4 * size_t(i), 4);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    word = __builtin_bswap32(word);
#endif
    line[i] = word;
  }
  for (int x = 4 * words; x < width; ++x) SET_DATA_BYTE(line, x, gray[x]);
}

// libpng reports errors by longjmp; nothing with a destructor may live between the setjmp and
// the jump, so the rows are read in this function alone, into storage owned by the caller.
bool readRows(PngReader& reader, Pix* pix, int channels, std::vector<png_byte>& row,
              std::vector<uint8_t>& gray, bool* exact) {
  if (setjmp(png_jmpbuf(reader.png))) return false;
  const int width = pixGetWidth(pix), height = pixGetHeight(pix), wpl = pixGetWpl(pix);
  l_uint32* data = pixGetData(pix);
  bool allExact = true;
  for (int y = 0; y < height; ++y) {
    png_read_row(reader.png, row.data(), nullptr);
    allExact &= rowToGray(row.data(), width, channels, gray.data());
    storeRow(gray.data(), width, data + size_t(y) * wpl);
  }
  png_read_end(reader.png, nullptr);
  *exact = allExact;
  return true;
}

// Pixels per inch across and down, as the file gives them (0 when it does not).
struct Resolution {
  int x = 0;
  int y = 0;
};

// Bytes per pixel of the files this reader takes (1 to 4); 0 for any other file.
int channelsOf(int depth, int colorType, int interlace, bool transparentColour) {
  if (depth != 8 || interlace != PNG_INTERLACE_NONE || transparentColour) return 0;
  switch (colorType) {
    case PNG_COLOR_TYPE_GRAY:
      return 1;
    case PNG_COLOR_TYPE_GRAY_ALPHA:
      return 2;
    case PNG_COLOR_TYPE_RGB:
      return 3;
    case PNG_COLOR_TYPE_RGB_ALPHA:
      return 4;
    default:
      return 0;
  }
}

bool readHeader(PngReader& reader, FILE* file, png_uint_32* width, png_uint_32* height,
                Resolution* resolution, int* channels) {
  if (setjmp(png_jmpbuf(reader.png))) return false;
  png_init_io(reader.png, file);
  // The compressed data's checksums cost a tenth of the decoding and protect nothing here: a
  // damaged stream still fails to inflate.
  png_set_crc_action(reader.png, PNG_CRC_QUIET_USE, PNG_CRC_QUIET_USE);
#ifdef PNG_IGNORE_ADLER32
  png_set_option(reader.png, PNG_IGNORE_ADLER32, PNG_OPTION_ON);
#endif
  png_read_info(reader.png, reader.info);
  int depth = 0, colorType = 0, interlace = 0;
  png_get_IHDR(reader.png, reader.info, width, height, &depth, &colorType, &interlace, nullptr,
               nullptr);
  png_uint_32 xPerUnit = 0, yPerUnit = 0;
  int unit = 0;
  if (png_get_pHYs(reader.png, reader.info, &xPerUnit, &yPerUnit, &unit) != 0 &&
      unit == PNG_RESOLUTION_METER) {
    *resolution = {int(xPerUnit * 0.0254 + 0.5), int(yPerUnit * 0.0254 + 0.5)};
  }
  *channels = channelsOf(depth, colorType, interlace,
                         png_get_valid(reader.png, reader.info, PNG_INFO_tRNS) != 0);
  return true;
}

}  // namespace

GrayPng readGrayPng(const std::string& path) {
  std::unique_ptr<FILE, FileCloser> file(fopen(path.c_str(), "rb"));
  if (!file) return {};
  png_byte signature[8];
  if (fread(signature, 1, 8, file.get()) != 8 || png_sig_cmp(signature, 0, 8) != 0) return {};
  PngReader reader;
  reader.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, quietError, quietWarning);
  if (reader.png == nullptr) return {};
  reader.info = png_create_info_struct(reader.png);
  if (reader.info == nullptr) return {};
  png_set_sig_bytes(reader.png, 8);
  png_uint_32 width = 0, height = 0;
  int channels = 0;
  Resolution resolution;
  if (!readHeader(reader, file.get(), &width, &height, &resolution, &channels) || channels == 0 ||
      width == 0 || height == 0 || width > 0x7fffffff || height > 0x7fffffff) {
    return {};
  }
  Pix* pix = pixCreateNoInit(int(width), int(height), 8);
  if (pix == nullptr) return {};
  pixSetResolution(pix, resolution.x, resolution.y);
  std::vector<png_byte> row(size_t(width) * size_t(channels));
  std::vector<uint8_t> gray(width);
  bool exact = false;
  if (!readRows(reader, pix, channels, row, gray, &exact)) {
    pixDestroy(&pix);
    return {};
  }
  return {pix, exact};
}

}  // namespace tallowbrook::VisionOCR
