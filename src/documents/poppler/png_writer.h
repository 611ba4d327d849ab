// Writing a drawn page as a PNG file, quickly: most of pdf-page's time goes here.
#pragma once

#include <cstdint>
#include <string>

#include "documents/pdf_document.h"

namespace tallowbrook::Pdf {

// An 8-bit RGB bitmap: `stride` bytes per row, each pixel three bytes R, G, B.
struct Bitmap {
  const uint8_t* data = nullptr;
  int width = 0;
  int height = 0;
  int stride = 0;
};

// Writes `bitmap` to `path` as an 8-bit PNG: greyscale when every pixel is grey, RGB otherwise;
// fast zlib settings with a cheap row filter. Throws DocumentError cannotCreate when the file
// cannot be created, writeFailed when encoding or writing fails part way (the partial file is
// left as it is).
void writePng(const Bitmap& bitmap, const std::string& path);

}  // namespace tallowbrook::Pdf
