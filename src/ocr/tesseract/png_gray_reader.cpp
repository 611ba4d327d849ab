#include "ocr/tesseract/png_gray_reader.h"

#include <libdeflate.h>
#include <png.h>
#include <sys/mman.h>

#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
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

// The grey Leptonica's pixConvertRGBToLuminance makes of one colour, computed as it does
// (single-precision weights, plus a half, truncated).
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
  const size_t step = size_t(channels);
  if (width > 1 && std::memcmp(row, row + step, step * size_t(width - 1)) == 0) {
    // One colour across: a blank stretch of the page, common enough to convert once.
    const bool grey = channels == 2 || (row[0] == row[1] && row[1] == row[2]);
    const bool opaque = channels == 3 || row[step - 1] == 255;
    std::memset(gray, channels == 2 ? row[0] : luminance(row[0], row[1], row[2]), size_t(width));
    return grey && opaque;
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

// Memory for a large buffer straight from the system, in huge pages where it allows: the
// faults of 4 KB pages cost a fifth of decoding a blank colour page. Unset bytes are zero.
class LargeBuffer {
 public:
  explicit LargeBuffer(size_t size) : size_(size) {
    void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return;
    data_ = static_cast<uint8_t*>(memory);
    madvise(memory, size, MADV_HUGEPAGE);
  }
  ~LargeBuffer() {
    if (data_ != nullptr) munmap(data_, size_);
  }
  LargeBuffer(const LargeBuffer&) = delete;
  LargeBuffer& operator=(const LargeBuffer&) = delete;
  uint8_t* data() const { return data_; }
  size_t size() const { return size_; }

 private:
  uint8_t* data_ = nullptr;
  size_t size_;
};

struct DecompressorDeleter {
  void operator()(libdeflate_decompressor* decompressor) const {
    libdeflate_free_decompressor(decompressor);
  }
};

// The compressed image data of the PNG file `file`: its IDAT chunks' contents, joined. False
// when the file ends before its closing chunk or a chunk is malformed.
bool readImageData(FILE* file, std::vector<uint8_t>* data) {
  if (fseek(file, 0, SEEK_END) != 0) return false;
  const long fileSize = ftell(file);
  if (fileSize < 0 || fseek(file, 8, SEEK_SET) != 0) return false;
  for (;;) {
    uint8_t head[8];
    if (fread(head, 1, 8, file) != 8) return false;
    const uint32_t length =
        uint32_t(head[0]) << 24 | uint32_t(head[1]) << 16 | uint32_t(head[2]) << 8 | head[3];
    // A chunk claiming more than the file holds is cut short; nothing is allocated for it.
    if (length > 0x7fffffff || ftell(file) + long(length) + 4 > fileSize) return false;
    if (std::memcmp(head + 4, "IEND", 4) == 0) return true;
    if (std::memcmp(head + 4, "IDAT", 4) == 0) {
      const size_t start = data->size();
      data->resize(start + length);
      if (fread(data->data() + start, 1, length, file) != length) return false;
      if (fseek(file, 4, SEEK_CUR) != 0) return false;  // the checksum, unchecked
    } else if (fseek(file, long(length) + 4, SEEK_CUR) != 0) {
      return false;
    }
  }
}

// The PNG row filter that adds the row above.
constexpr uint8_t kFilterUp = 2;

inline uint8_t paeth(int left, int up, int upLeft) {
  const int p = left + up - upLeft;
  const int toLeft = std::abs(p - left), toUp = std::abs(p - up), toUpLeft = std::abs(p - upLeft);
  if (toLeft <= toUp && toLeft <= toUpLeft) return uint8_t(left);
  return uint8_t(toUp <= toUpLeft ? up : upLeft);
}

// Undoes the PNG filter `filter` on the `size` bytes of `row` in place, given the row above
// (unfiltered; zeros for the first row) and `step` bytes a pixel. False for an unknown filter.
bool unfilter(uint8_t filter, uint8_t* row, const uint8_t* above, size_t size, size_t step) {
  switch (filter) {
    case 0:
      return true;
    case 1:
      for (size_t i = step; i < size; ++i) row[i] = uint8_t(row[i] + row[i - step]);
      return true;
    case kFilterUp:
      for (size_t i = 0; i < size; ++i) row[i] = uint8_t(row[i] + above[i]);
      return true;
    case 3:
      for (size_t i = 0; i < step; ++i) row[i] = uint8_t(row[i] + (above[i] >> 1));
      for (size_t i = step; i < size; ++i) {
        row[i] = uint8_t(row[i] + ((row[i - step] + above[i]) >> 1));
      }
      return true;
    case 4:
      for (size_t i = 0; i < step; ++i) row[i] = uint8_t(row[i] + above[i]);
      for (size_t i = step; i < size; ++i) {
        row[i] = uint8_t(row[i] + paeth(row[i - step], above[i], above[i - step]));
      }
      return true;
    default:
      return false;
  }
}

}  // namespace

// Each row is its filter byte, then `channels` bytes a pixel, unfiltered once read.
struct ColourRows {
  ColourRows(int width, int height, int channels, size_t stride)
      : width(width),
        height(height),
        channels(channels),
        stride(stride),
        rows(stride * size_t(height)) {}
  int width, height, channels;
  size_t stride;
  LargeBuffer rows;
  int xResolution = 0, yResolution = 0;
};

namespace {

// The rows of a colour file (`channels` bytes a pixel) into the grey `pix`: the image data is
// inflated whole (libdeflate inflates several times faster than zlib, and needs the whole
// output), then each row is unfiltered in place and converted. The decoded rows go to
// `*decoded`. False for damaged data.
bool readColourRows(FILE* file, Pix* pix, int channels, bool* exact,
                    std::shared_ptr<ColourRows>* decoded) {
  std::vector<uint8_t> compressed;
  if (!readImageData(file, &compressed)) return false;
  const int width = pixGetWidth(pix), height = pixGetHeight(pix), wpl = pixGetWpl(pix);
  const size_t rowBytes = size_t(width) * size_t(channels), stride = rowBytes + 1;
  std::unique_ptr<libdeflate_decompressor, DecompressorDeleter> decompressor(
      libdeflate_alloc_decompressor());
  if (!decompressor) return false;
  if (size_t(height) > SIZE_MAX / stride) return false;
  auto colour = std::make_shared<ColourRows>(width, height, channels, stride);
  LargeBuffer& rows = colour->rows;
  if (rows.data() == nullptr) return false;
  // Exactly the image's rows: data cut short or running on is left to Leptonica.
  if (libdeflate_zlib_decompress(decompressor.get(), compressed.data(), compressed.size(),
                                 rows.data(), rows.size(), nullptr) != LIBDEFLATE_SUCCESS) {
    return false;
  }
  compressed = {};
  const std::vector<uint8_t> zeros(rowBytes, 0);
  std::vector<uint8_t> gray(static_cast<size_t>(width));
  l_uint32* data = pixGetData(pix);
  bool allExact = true;
  for (int y = 0; y < height; ++y) {
    uint8_t* row = rows.data() + size_t(y) * stride;
    l_uint32* line = data + size_t(y) * wpl;
    const uint8_t* above = y == 0 ? zeros.data() : row - stride + 1;
    if (y > 0 && row[0] == kFilterUp && std::memcmp(row + 1, zeros.data(), rowBytes) == 0) {
      // The row repeats the one above (the blank stretches of a page, as encoders write them):
      // so do its grey and its exactness.
      std::memcpy(row + 1, above, rowBytes);
      std::memcpy(line, line - wpl, sizeof(l_uint32) * size_t(wpl));
      continue;
    }
    if (!unfilter(row[0], row + 1, above, rowBytes, size_t(channels))) return false;
    allExact &= rowToGray(row + 1, width, channels, gray.data());
    storeRow(gray.data(), width, line);
  }
  *exact = allExact;
  *decoded = std::move(colour);
  return true;
}

// One row of `width` pixels of `channels` bytes each (grey+alpha, RGB or RGBA) into a line of a
// 32-bit image, in Leptonica's order: red, green, blue, alpha from the most significant byte.
void storeColourRow(const uint8_t* row, int width, int channels, l_uint32* line) {
  switch (channels) {
    case 2:
      for (int x = 0; x < width; ++x, row += 2) {
        line[x] = l_uint32(row[0]) << 24 | l_uint32(row[0]) << 16 | l_uint32(row[0]) << 8 | row[1];
      }
      break;
    case 3:
      for (int x = 0; x < width; ++x, row += 3) {
        line[x] = l_uint32(row[0]) << 24 | l_uint32(row[1]) << 16 | l_uint32(row[2]) << 8 | 0xff;
      }
      break;
    default:
      for (int x = 0; x < width; ++x, row += 4) {
        line[x] = l_uint32(row[0]) << 24 | l_uint32(row[1]) << 16 | l_uint32(row[2]) << 8 | row[3];
      }
      break;
  }
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
  bool exact = false;
  bool read = false;
  std::shared_ptr<ColourRows> colour;
  if (channels == 1) {  // row by row, never holding more than a row of the file's data
    std::vector<png_byte> row(width);
    std::vector<uint8_t> gray(width);
    read = readRows(reader, pix, channels, row, gray, &exact);
  } else {
    read = readColourRows(file.get(), pix, channels, &exact, &colour);
  }
  if (!read) {
    pixDestroy(&pix);
    return {};
  }
  // A grey image is the image itself: its decoded pixels are not needed.
  if (exact || !colour) return {pix, exact, nullptr};
  colour->xResolution = resolution.x;
  colour->yResolution = resolution.y;
  return {pix, exact, std::move(colour)};
}

Pix* colourImage(const GrayPng& png) {
  const ColourRows* colour = png.colour.get();
  if (colour == nullptr || colour->rows.data() == nullptr) return nullptr;
  Pix* pix = pixCreateNoInit(colour->width, colour->height, 32);
  if (pix == nullptr) return nullptr;
  pixSetSpp(pix, colour->channels == 3 ? 3 : 4);
  pixSetResolution(pix, colour->xResolution, colour->yResolution);
  pixSetInputFormat(pix, IFF_PNG);
  l_uint32* data = pixGetData(pix);
  const int wpl = pixGetWpl(pix);
  for (int y = 0; y < colour->height; ++y) {
    storeColourRow(colour->rows.data() + size_t(y) * colour->stride + 1, colour->width,
                   colour->channels, data + size_t(y) * wpl);
  }
  return pix;
}

}  // namespace tallowbrook::VisionOCR
