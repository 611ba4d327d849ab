// A faster way in for the most common large images: eight-bit grey and colour PNGs (scans,
// renders, screenshots), decoded straight to grey.
#pragma once

#include <memory>
#include <string>

struct Pix;

namespace tallowbrook::VisionOCR {

// A colour file's decoded pixels, held for colourImage.
struct ColourRows;

// A PNG file decoded to an 8-bit grey Leptonica image.
struct GrayPng {
  // Owned by the caller; nullptr when the file is not one this reader takes (see readGrayPng)
  // or is damaged.
  Pix* pix = nullptr;
  // True when every pixel of the file is grey and opaque, so `pix` is the image itself. False
  // for a colour image: `pix` is then its luminance (Leptonica's pixConvertRGBToLuminance, alpha
  // ignored), the same grey the page's content is found in, but not the image itself.
  bool exact = false;
  // For a colour image, its decoded pixels (3 or 4 bytes each), from which colourImage makes
  // the image itself without decoding the file again; empty otherwise. Reset it to free them.
  std::shared_ptr<const ColourRows> colour;
};

// The image of the PNG file at `path` in grey, when it is non-interlaced 8-bit grey, grey with
// alpha, RGB or RGBA without a palette or a transparent colour (tRNS); nothing (a null pix) for
// any other file, which Leptonica's own reader then decodes. Grey files are read row by row
// straight into the image; colour ones hold their filtered data whole (3 or 4 bytes a pixel,
// 1 for the grey image) while converting, never a 32-bit image. Skips the checksums of the
// chunks; a damaged or truncated file gives a null pix too. Any thread.
GrayPng readGrayPng(const std::string& path);

// The colour image of a file read by readGrayPng, as Leptonica's own reader gives it: 32 bits a
// pixel, red in the most significant byte, alpha in the least (255 for RGB files), 4 samples a
// pixel for files with alpha (grey with alpha as RGBA) and 3 otherwise, and the file's
// resolution. Owned by the caller; nullptr when `png` holds no colour pixels or memory runs
// out. Any thread.
Pix* colourImage(const GrayPng& png);

}  // namespace tallowbrook::VisionOCR
