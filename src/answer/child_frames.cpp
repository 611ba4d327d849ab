#include "answer/child_frames.h"

namespace tallowbrook::Answer {
namespace {

constexpr size_t kHeaderBytes = 5;

bool knownKind(uint8_t kind) {
  return kind >= uint8_t(FrameKind::unavailable) && kind <= uint8_t(FrameKind::failed);
}

}  // namespace

std::string encodeFrame(FrameKind kind, std::string_view payload) {
  if (payload.size() > kMaxFramePayload) payload = payload.substr(0, kMaxFramePayload);
  uint32_t size = uint32_t(payload.size());
  std::string frame;
  frame.reserve(kHeaderBytes + size);
  frame.push_back(char(kind));
  for (int shift = 0; shift < 32; shift += 8) frame.push_back(char((size >> shift) & 0xFF));
  frame.append(payload);
  return frame;
}

void FrameReader::append(std::string_view bytes) {
  // Frames already taken are dropped once they are most of the buffer, so a read that brings
  // thousands of small frames costs no more than copying it once.
  if (start_ > 0 && start_ >= buffer_.size() / 2) {
    buffer_.erase(0, start_);
    start_ = 0;
  }
  buffer_.append(bytes);
}

std::optional<Frame> FrameReader::next() {
  size_t available = buffer_.size() - start_;
  if (broken_ || available < kHeaderBytes) return std::nullopt;
  const char* header = buffer_.data() + start_;
  uint8_t kind = uint8_t(header[0]);
  uint32_t size = 0;
  for (int i = 0; i < 4; ++i) size |= uint32_t(uint8_t(header[1 + i])) << (8 * i);
  if (!knownKind(kind) || size > kMaxFramePayload) {
    broken_ = true;
    buffer_.clear();
    start_ = 0;
    return std::nullopt;
  }
  if (available < kHeaderBytes + size) return std::nullopt;
  Frame frame{FrameKind(kind), buffer_.substr(start_ + kHeaderBytes, size)};
  start_ += kHeaderBytes + size;
  return frame;
}

}  // namespace tallowbrook::Answer
