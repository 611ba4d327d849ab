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

const uint8_t* row(const Bitmap& bitmap, int y) {
  return bitmap.data + size_t(y) * size_t(bitmap.stride);
}

bool allGrey(const Bitmap& bitmap) {
  for (int y = 0; y < bitmap.height; ++y) {
    const uint8_t* p = row(bitmap, y);
    for (int x = 0; x < bitmap.width; ++x, p += 3) {
      if (p[0] != p[1] || p[1] != p[2]) return false;
    }
  }
  return true;
}

[[noreturn]] void failed(const std::string& path) {
  throw DocumentError(DocumentError::Kind::writeFailed, "writing " + path + " failed");
}

struct FileCloser {
  void operator()(FILE* file) const { fclose(file); }
};
struct ContextFreer {
  void operator()(spng_ctx* context) const { spng_ctx_free(context); }
};

}  // namespace

void writePng(const Bitmap& bitmap, const std::string& path) {
  std::unique_ptr<FILE, FileCloser> file(fopen(path.c_str(), "wb"));
  if (!file) {
    throw DocumentError(DocumentError::Kind::cannotCreate, "could not write to " + path);
  }
  std::unique_ptr<spng_ctx, ContextFreer> context(spng_ctx_new(SPNG_CTX_ENCODER));
  if (!context) failed(path);

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
    failed(path);
  }

  std::vector<uint8_t> greyRow(grey ? size_t(bitmap.width) : 0);
  for (int y = 0; y < bitmap.height; ++y) {
    const uint8_t* pixels = row(bitmap, y);
    int status;
    if (grey) {
      for (int x = 0; x < bitmap.width; ++x) greyRow[size_t(x)] = pixels[size_t(x) * 3];
      status = spng_encode_row(ctx, greyRow.data(), greyRow.size());
    } else {
      status = spng_encode_row(ctx, pixels, size_t(bitmap.width) * 3);
    }
    if (status == SPNG_EOI) break;
    if (status != 0) failed(path);
  }
  context.reset();
  FILE* raw = file.release();
  bool flushed = fflush(raw) == 0 && !ferror(raw);
  if (fclose(raw) != 0 || !flushed) failed(path);
}

}  // namespace tallowbrook::Pdf
