#include "documents/poppler/png_writer.h"

#include <spng.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

namespace tallowbrook::Pdf {
namespace {

// Settings chosen with bench/pdf-page: zlib level 2 with the Up filter encodes a rendered
// page several times faster than libpng's defaults, in a file of about the same size.
constexpr int kCompressionLevel = 2;
constexpr int kFilterChoice = SPNG_FILTER_CHOICE_UP;

const uint32_t* row(const Bitmap& bitmap, int y) {
  return reinterpret_cast<const uint32_t*>(bitmap.data + size_t(y) * size_t(bitmap.stride));
}

bool allGrey(const Bitmap& bitmap) {
  for (int y = 0; y < bitmap.height; ++y) {
    const uint32_t* pixels = row(bitmap, y);
    for (int x = 0; x < bitmap.width; ++x) {
      uint32_t p = pixels[x];
      uint32_t b = p & 0xFF;
      if (((p >> 8) & 0xFF) != b || ((p >> 16) & 0xFF) != b) return false;
    }
  }
  return true;
}

struct FileCloser {
  void operator()(FILE* file) const { fclose(file); }
};
struct ContextFreer {
  void operator()(spng_ctx* context) const { spng_ctx_free(context); }
};

}  // namespace

WriteResult writePng(const Bitmap& bitmap, const std::string& path) {
  std::unique_ptr<FILE, FileCloser> file(fopen(path.c_str(), "wb"));
  if (!file) return WriteResult::cannotCreate;
  std::unique_ptr<spng_ctx, ContextFreer> context(spng_ctx_new(SPNG_CTX_ENCODER));
  if (!context) return WriteResult::failed;

  bool grey = allGrey(bitmap);
  spng_ihdr header{};
  header.width = uint32_t(bitmap.width);
  header.height = uint32_t(bitmap.height);
  header.bit_depth = 8;
  header.color_type = grey ? SPNG_COLOR_TYPE_GRAYSCALE : SPNG_COLOR_TYPE_TRUECOLOR;
  spng_ctx* ctx = context.get();
  if (spng_set_png_file(ctx, file.get()) || spng_set_ihdr(ctx, &header) ||
      spng_set_option(ctx, SPNG_IMG_COMPRESSION_LEVEL, kCompressionLevel) ||
      spng_set_option(ctx, SPNG_FILTER_CHOICE, kFilterChoice) ||
      spng_encode_image(ctx, nullptr, 0, SPNG_FMT_PNG,
                        SPNG_ENCODE_PROGRESSIVE | SPNG_ENCODE_FINALIZE)) {
    return WriteResult::failed;
  }

  size_t channels = grey ? 1 : 3;
  std::vector<uint8_t> line(size_t(bitmap.width) * channels);
  for (int y = 0; y < bitmap.height; ++y) {
    const uint32_t* pixels = row(bitmap, y);
    uint8_t* out = line.data();
    if (grey) {
      for (int x = 0; x < bitmap.width; ++x) out[x] = uint8_t(pixels[x]);
    } else {
      for (int x = 0; x < bitmap.width; ++x, out += 3) {
        uint32_t p = pixels[x];
        out[0] = uint8_t(p >> 16);
        out[1] = uint8_t(p >> 8);
        out[2] = uint8_t(p);
      }
    }
    int status = spng_encode_row(ctx, line.data(), line.size());
    if (status == SPNG_EOI) break;
    if (status != 0) return WriteResult::failed;
  }
  context.reset();
  FILE* raw = file.release();
  bool flushed = fflush(raw) == 0 && !ferror(raw);
  if (fclose(raw) != 0 || !flushed) return WriteResult::failed;
  return WriteResult::written;
}

}  // namespace tallowbrook::Pdf
