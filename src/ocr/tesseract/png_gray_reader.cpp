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

// libpng reports errors by longjmp; nothing with a destructor may live between the setjmp and
// the jump, so the rows are read in this function alone, into storage owned by the caller.
bool readRows(PngReader& reader, Pix* pix, std::vector<png_byte>& row) {
  if (setjmp(png_jmpbuf(reader.png))) return false;
  const int width = pixGetWidth(pix), height = pixGetHeight(pix), wpl = pixGetWpl(pix);
  l_uint32* data = pixGetData(pix);
  for (int y = 0; y < height; ++y) {
    png_read_row(reader.png, row.data(), nullptr);
    l_uint32* line = data + size_t(y) * wpl;
    // Leptonica keeps four pixels in a 32-bit word, the first in its most significant byte.
    const int words = width / 4;
    for (int i = 0; i < words; ++i) {
      uint32_t word = 0;
      std::memcpy(&word, row.data() + 4 * size_t(i), 4);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
      word = __builtin_bswap32(word);
#endif
      line[i] = word;
    }
    for (int x = 4 * words; x < width; ++x) SET_DATA_BYTE(line, x, row[size_t(x)]);
  }
  png_read_end(reader.png, nullptr);
  return true;
}

// Pixels per inch across and down, as the file gives them (0 when it does not).
struct Resolution {
  int x = 0;
  int y = 0;
};

bool readHeader(PngReader& reader, FILE* file, png_uint_32* width, png_uint_32* height,
                Resolution* resolution, bool* plainGray) {
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
  *plainGray = depth == 8 && colorType == PNG_COLOR_TYPE_GRAY && interlace == PNG_INTERLACE_NONE &&
               !png_get_valid(reader.png, reader.info, PNG_INFO_tRNS);
  return true;
}

}  // namespace

Pix* readGrayPng(const std::string& path) {
  std::unique_ptr<FILE, FileCloser> file(fopen(path.c_str(), "rb"));
  if (!file) return nullptr;
  png_byte signature[8];
  if (fread(signature, 1, 8, file.get()) != 8 || png_sig_cmp(signature, 0, 8) != 0) {
    return nullptr;
  }
  PngReader reader;
  reader.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  if (reader.png == nullptr) return nullptr;
  reader.info = png_create_info_struct(reader.png);
  if (reader.info == nullptr) return nullptr;
  png_set_sig_bytes(reader.png, 8);
  png_uint_32 width = 0, height = 0;
  bool plainGray = false;
  Resolution resolution;
  if (!readHeader(reader, file.get(), &width, &height, &resolution, &plainGray) || !plainGray ||
      width == 0 || height == 0 || width > 0x7fffffff || height > 0x7fffffff) {
    return nullptr;
  }
  Pix* pix = pixCreateNoInit(int(width), int(height), 8);
  if (pix == nullptr) return nullptr;
  pixSetResolution(pix, resolution.x, resolution.y);
  std::vector<png_byte> row(width);
  if (!readRows(reader, pix, row)) {
    pixDestroy(&pix);
    return nullptr;
  }
  return pix;
}

}  // namespace tallowbrook::VisionOCR
