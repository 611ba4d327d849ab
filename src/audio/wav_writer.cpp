#include "audio/wav_writer.h"

#include <cstdlib>
#include <system_error>
#include <utility>

#include "audio/checked_math.h"

namespace tallowbrook {
namespace {

void putU32(WavWriter::Header& h, size_t at, int64_t value) {
  auto v = static_cast<uint64_t>(value);  // two's complement: keeps the low bits of negatives
  for (size_t i = 0; i < 4; ++i) h[at + i] = static_cast<uint8_t>(v >> (8 * i));
}

void putU16(WavWriter::Header& h, size_t at, int64_t value) {
  auto v = static_cast<uint64_t>(value);
  h[at] = static_cast<uint8_t>(v);
  h[at + 1] = static_cast<uint8_t>(v >> 8);
}

void putTag(WavWriter::Header& h, size_t at, const char (&tag)[5]) {
  for (size_t i = 0; i < 4; ++i) h[at + i] = static_cast<uint8_t>(tag[i]);
}

}  // namespace

WavWriter::Header WavWriter::header(int64_t sampleRate, int64_t channels, int64_t dataBytes) {
  const int64_t blockAlign = checkedMul(channels, 2);
  const int64_t riffSize = checkedAdd(dataBytes, 36);
  const int64_t byteRate = checkedMul(checkedMul(sampleRate, channels), 2);

  Header h{};
  putTag(h, 0, "RIFF");
  putU32(h, 4, riffSize);
  putTag(h, 8, "WAVE");
  putTag(h, 12, "fmt ");
  putU32(h, 16, 16);
  putU16(h, 20, 1);  // integer PCM
  putU16(h, 22, channels);
  putU32(h, 24, sampleRate);
  putU32(h, 28, byteRate);
  putU16(h, 32, blockAlign);
  putU16(h, 34, 16);
  putTag(h, 36, "data");
  putU32(h, 40, dataBytes);
  return h;
}

WavWriter::WavWriter(std::string path, int64_t sampleRate, int64_t channels, Reporter reporter)
    : WavWriter(createWavFile(path), path, sampleRate, channels, std::move(reporter)) {}

WavWriter::WavWriter(std::unique_ptr<WavFile> file, std::string path, int64_t sampleRate,
                     int64_t channels, Reporter reporter)
    : file_(std::move(file)),
      reporter_(std::move(reporter)),
      sampleRate_(sampleRate),
      channels_(channels),
      path_(std::move(path)) {
  const Header first = header(sampleRate_, channels_, 0);
  if (int error = file_->write(first.data(), first.size())) {
    throw std::system_error(error, std::system_category());
  }
}

WavWriter::~WavWriter() = default;

void WavWriter::append(std::span<const int16_t> samples) {
  if (samples.empty()) return;
  int error = 0;
  {
    // Samples are stored in native order, which is the file's little-endian order.
    std::lock_guard<std::mutex> held(lock_);
    if (closed_) return;
    error = file_->write(samples.data(), samples.size_bytes());
    if (error == 0) {
      frames_ += static_cast<int64_t>(samples.size()) / channels_;
      return;
    }
    // Drop any part of the block that did get written, so the next append continues where the
    // counted data ends and the samples stay aligned with the header. (The write position is
    // always there before a write, so it is not asked for each block: that was a system call
    // per block.)
    (void)file_->seek(int64_t(kHeaderBytes) + checkedMul(checkedMul(frames_, channels_), 2));
  }
  if (reporter_) reporter_(std::system_category().message(error));
}

std::unique_lock<std::mutex> WavWriter::hold() {
  return std::unique_lock<std::mutex>(lock_);
}

void WavWriter::checkHeld(const std::unique_lock<std::mutex>& held) const {
  if (held.mutex() != &lock_ || !held.owns_lock()) std::abort();
}

int64_t WavWriter::frames(const std::unique_lock<std::mutex>& held) const {
  checkHeld(held);
  return frames_;
}

void WavWriter::writeHeaderLocked(const std::unique_lock<std::mutex>& held) {
  checkHeld(held);
  if (closed_) return;
  const int64_t dataBytes = checkedMul(checkedMul(frames_, channels_), 2);
  const Header h = header(sampleRate_, channels_, dataBytes);
  // A positioned write: the append position stays at the end of the data.
  (void)file_->writeAt(h.data(), h.size(), 0);
}

void WavWriter::finish() {
  auto held = hold();
  if (closed_) return;
  writeHeaderLocked(held);
  // A block that failed part-way (a full disk) may have left bytes past the write position,
  // which is where the data written in full ends: cut them off.
  const int64_t end = file_->position();
  if (end >= int64_t(kHeaderBytes)) (void)file_->truncate(end);
  (void)file_->sync();
  file_.reset();
  closed_ = true;
}

}  // namespace tallowbrook
