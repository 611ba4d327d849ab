#include "ocr/decode_budget.h"

#include <algorithm>
#include <cstdint>

namespace tallowbrook::VisionOCR {

int64_t decodeBytes(const ImageHeader& header) {
  if (header.width <= 0 || header.height <= 0) return 0;
  // Beyond 2^40 pixels the products below could overflow; such an image is never decodable.
  if (header.width > (int64_t(1) << 40) / header.height) return INT64_MAX;
  const int64_t pixels = header.width * header.height;
  const int bits = std::max(1, header.bitsPerSample), samples = std::max(1, header.samplesPerPixel);
  int decodedBits = 32;
  if (header.colormap) {
    decodedBits = 8;
  } else if (samples == 1) {
    decodedBits = bits <= 1 ? 1 : bits <= 8 ? 8 : 16;
  }
  const int64_t storedBits = int64_t(bits) * samples;
  return (pixels * decodedBits + 7) / 8 + (pixels * storedBits + 7) / 8;
}

}  // namespace tallowbrook::VisionOCR
