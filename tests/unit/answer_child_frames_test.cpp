// The framing of the generating child's reports: every frame survives any split of the byte
// stream, and anything that is not a frame breaks the reader instead of being read.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "answer/child_frames.h"

namespace {

using tallowbrook::Answer::encodeFrame;
using tallowbrook::Answer::Frame;
using tallowbrook::Answer::FrameKind;
using tallowbrook::Answer::FrameReader;
using tallowbrook::Answer::kMaxFramePayload;

std::vector<Frame> sample() {
  return {{FrameKind::alive, ""},
          {FrameKind::ready, ""},
          {FrameKind::piece, "Hello"},
          {FrameKind::piece, std::string("\xE2\x86", 2)},
          {FrameKind::piece, std::string("\0\x92", 2)},
          {FrameKind::unavailable, std::string("modelNotReady\0detail", 20)},
          {FrameKind::failed, "the model stopped"},
          {FrameKind::done, ""}};
}

std::string stream(const std::vector<Frame>& frames) {
  std::string bytes;
  for (const auto& f : frames) bytes += encodeFrame(f.kind, f.payload);
  return bytes;
}

std::vector<Frame> readAll(FrameReader& reader) {
  std::vector<Frame> out;
  while (auto f = reader.next()) out.push_back(*f);
  return out;
}

void expectSame(const std::vector<Frame>& got, const std::vector<Frame>& want) {
  ASSERT_EQ(got.size(), want.size());
  for (size_t i = 0; i < got.size(); ++i) {
    EXPECT_EQ(got[i].kind, want[i].kind) << i;
    EXPECT_EQ(got[i].payload, want[i].payload) << i;
  }
}

}  // namespace

TEST(ChildFrames, EveryFrameSurvivesEverySplit) {
  const auto frames = sample();
  const std::string bytes = stream(frames);
  for (size_t cut = 0; cut <= bytes.size(); ++cut) {
    FrameReader reader;
    reader.append(bytes.substr(0, cut));
    auto got = readAll(reader);
    reader.append(bytes.substr(cut));
    auto rest = readAll(reader);
    got.insert(got.end(), rest.begin(), rest.end());
    expectSame(got, frames);
    EXPECT_FALSE(reader.broken());
    EXPECT_FALSE(reader.partial());
  }
}

TEST(ChildFrames, ByteByByte) {
  const auto frames = sample();
  const std::string bytes = stream(frames);
  FrameReader reader;
  std::vector<Frame> got;
  for (char c : bytes) {
    reader.append(std::string_view(&c, 1));
    auto some = readAll(reader);
    got.insert(got.end(), some.begin(), some.end());
  }
  expectSame(got, frames);
}

TEST(ChildFrames, ManyFramesInOneRead) {
  std::vector<Frame> frames(20000, Frame{FrameKind::piece, " tick"});
  FrameReader reader;
  reader.append(stream(frames));
  expectSame(readAll(reader), frames);
}

TEST(ChildFrames, TruncatedAtEveryLengthIsPartialNeverAFrame) {
  const std::string bytes = encodeFrame(FrameKind::piece, "abcdef");
  for (size_t length = 1; length < bytes.size(); ++length) {
    FrameReader reader;
    reader.append(bytes.substr(0, length));
    EXPECT_FALSE(reader.next());
    EXPECT_TRUE(reader.partial());
    EXPECT_FALSE(reader.broken());
  }
}

TEST(ChildFrames, UnknownKindsAndOversizedLengthsBreakTheReader) {
  for (std::string bad :
       {std::string("\x00\x00\x00\x00\x00", 5), std::string("\x08\x00\x00\x00\x00", 5),
        std::string("{\"type\":\"text\"}\n")}) {
    FrameReader reader;
    reader.append(encodeFrame(FrameKind::ready) + bad + encodeFrame(FrameKind::done));
    auto first = reader.next();
    ASSERT_TRUE(first);
    EXPECT_EQ(first->kind, FrameKind::ready);
    EXPECT_FALSE(reader.next());
    EXPECT_TRUE(reader.broken());
    reader.append(encodeFrame(FrameKind::done));
    EXPECT_FALSE(reader.next());
  }
  std::string huge = encodeFrame(FrameKind::piece, "");
  uint32_t size = kMaxFramePayload + 1;
  for (int i = 0; i < 4; ++i) huge[1 + i] = char((size >> (8 * i)) & 0xFF);
  FrameReader reader;
  reader.append(huge);
  EXPECT_FALSE(reader.next());
  EXPECT_TRUE(reader.broken());
}

TEST(ChildFrames, APayloadOverTheLimitIsCut) {
  std::string payload(kMaxFramePayload + 10, 'x');
  FrameReader reader;
  reader.append(encodeFrame(FrameKind::failed, payload));
  auto frame = reader.next();
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->payload.size(), kMaxFramePayload);
}
