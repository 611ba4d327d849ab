// How much memory decoding an image takes, known from its header before anything is decoded,
// so that an image too large to decode safely (a decompression bomb) is refused up front.
#pragma once

#include <cstdint>

namespace tallowbrook::VisionOCR {

// What a header tells about an image.
struct ImageHeader {
  int64_t width = 0;
  int64_t height = 0;
  int bitsPerSample = 0;
  int samplesPerPixel = 0;
  bool colormap = false;
};

// Decoding may take at most this many bytes: an A4 colour scan at 1200 dpi takes about 1 GB.
inline constexpr int64_t kMaxDecodeBytes = int64_t(1536) << 20;

// The bytes decoding takes at most: the decoded picture (one bit per pixel for black and
// white, one byte for grey or a colour map, four for colour) plus one copy of the rows as
// stored, which some decoders hold while reading. Pure.
int64_t decodeBytes(const ImageHeader& header);

}  // namespace tallowbrook::VisionOCR
