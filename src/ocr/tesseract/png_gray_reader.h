// A faster way in for the most common large images: eight-bit grey and colour PNGs (scans,
// renders, screenshots), decoded straight to grey.
#pragma once

#include <string>

struct Pix;

namespace tallowbrook::VisionOCR {

// A PNG file decoded to an 8-bit grey Leptonica image.
struct GrayPng {
  // Owned by the caller; nullptr when the file is not one this reader takes (see readGrayPng)
  // or is damaged.
  Pix* pix = nullptr;
  // True when every pixel of the file is grey and opaque, so `pix` is the image itself. False
  // for a colour image: `pix` is then its luminance (Leptonica's pixConvertRGBToLuminance, alpha
  // ignored), the same grey the page's content is found in, but not the image itself.
  bool exact = false;
};

// The image of the PNG file at `path` in grey, when it is non-interlaced 8-bit grey, grey with
// alpha, RGB or RGBA without a palette or a transparent colour (tRNS); nothing (a null pix) for
// any other file, which Leptonica's own reader then decodes. Grey files are read row by row
// straight into the image; colour ones hold their filtered data whole (3 or 4 bytes a pixel,
// 1 for the grey image) while converting, never a 32-bit image. Skips the checksums of the
// chunks; a damaged or truncated file gives a null pix too. Any thread.
GrayPng readGrayPng(const std::string& path);

}  // namespace tallowbrook::VisionOCR
