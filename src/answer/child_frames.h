// The framing of a generating child's reports on its pipe: one frame per GenerationSink call, a
// kind byte, a 32-bit little-endian payload length, then the payload bytes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tallowbrook::Answer {

enum class FrameKind : uint8_t {
  unavailable = 1,  // payload: the reason, a NUL, then the detail
  refused = 2,      // payload: the message
  ready = 3,
  piece = 4,  // payload: the bytes
  alive = 5,
  done = 6,
  failed = 7,  // payload: the message
};

// A payload longer than this is not one a child writes; the reader treats it as garbage.
inline constexpr uint32_t kMaxFramePayload = 1u << 20;

struct Frame {
  FrameKind kind = FrameKind::alive;
  std::string payload;
};

// The bytes of one frame. A payload longer than kMaxFramePayload is cut to that length. Pure.
std::string encodeFrame(FrameKind kind, std::string_view payload = {});

// Cuts frames out of a byte stream that arrives in arbitrary pieces. One thread at a time.
class FrameReader {
 public:
  // Appends bytes read from the pipe.
  void append(std::string_view bytes);

  // The next whole frame, or nothing when more bytes are needed. Sets broken() instead of
  // returning a frame when the stream holds an unknown kind or an oversized length; after that
  // it returns nothing.
  std::optional<Frame> next();

  bool broken() const { return broken_; }
  // Whether bytes of an incomplete frame are waiting.
  bool partial() const { return buffer_.size() > start_; }

 private:
  std::string buffer_;
  size_t start_ = 0;  // where the next frame begins in buffer_
  bool broken_ = false;
};

}  // namespace tallowbrook::Answer
