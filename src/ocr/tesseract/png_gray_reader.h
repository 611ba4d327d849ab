// A faster way in for the most common large image: an eight-bit grey PNG (scans, renders).
#pragma once

#include <string>

struct Pix;

namespace tallowbrook::VisionOCR {

// The image of the PNG file at `path` as an 8-bit Leptonica image when it is plain 8-bit grey
// (no palette, alpha, transparency or interlacing); nothing (nullptr) for any other file, which
// Leptonica's own reader then decodes. Reads row by row straight into the image, skipping the
// checksums of the compressed data; a damaged file gives nullptr too. Owned by the caller. Any
// thread.
Pix* readGrayPng(const std::string& path);

}  // namespace tallowbrook::VisionOCR
