// Fuzzes the PNG reader of text recognition: any bytes give either nothing or an 8-bit image of
// the size the file's header states (and for a colour file, a 32-bit colour image of that
// size), never a crash, a read out of bounds or a leak.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include <leptonica/allheaders.h>

#include "fuzz_check.h"
#include "ocr/tesseract/png_gray_reader.h"

namespace {

uint32_t bigEndian(const uint8_t* p) {
  return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // The reader makes the image before it inflates the data; the recogniser refuses images
  // too large to decode before it gets here, so large headers are left out.
  if (size >= 24 && uint64_t(bigEndian(data + 16)) * bigEndian(data + 20) > (1u << 22)) return 0;
  // The reader takes a path: the input lives in a memory file reached through /proc.
  static const int file = memfd_create("png-reader-fuzz", 0);
  fuzz::check(file >= 0);
  fuzz::check(ftruncate(file, 0) == 0);
  fuzz::check(size == 0 || pwrite(file, data, size, 0) == ssize_t(size));
  tallowbrook::VisionOCR::GrayPng png =
      tallowbrook::VisionOCR::readGrayPng("/proc/self/fd/" + std::to_string(file));
  if (png.pix != nullptr) {
    fuzz::check(pixGetDepth(png.pix) == 8);
    fuzz::check(size >= 24 && uint32_t(pixGetWidth(png.pix)) == bigEndian(data + 16) &&
                uint32_t(pixGetHeight(png.pix)) == bigEndian(data + 20));
    Pix* colour = tallowbrook::VisionOCR::colourImage(png);
    fuzz::check((colour != nullptr) == !png.exact);
    if (colour != nullptr) {
      fuzz::check(pixGetDepth(colour) == 32 && pixGetWidth(colour) == pixGetWidth(png.pix) &&
                  pixGetHeight(colour) == pixGetHeight(png.pix));
      pixDestroy(&colour);
    }
    pixDestroy(&png.pix);
  }
  return 0;
}
