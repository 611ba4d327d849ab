#include "speech/render_state.h"

#include <algorithm>

#include "speech/mono16.h"

namespace tallowbrook::Speak {

RenderState::RenderState(std::string path) : path_(std::move(path)) {}

void RenderState::willSpeakRange(int64_t loc, int64_t len) {
  marks.willSpeakRange(loc, len);
}

void RenderState::end(std::unique_lock<std::mutex>& held, std::optional<std::string> failure) {
  if (failure && !failure_) failure_ = std::move(failure);
  finished_ = true;
  held.unlock();
  changed_.notify_all();
}

void RenderState::didReceiveBuffer(const AudioBuffer& buffer) {
  if (!buffer.isPcm) return;
  std::unique_lock<std::mutex> held(lock_);
  if (finished_) return;  // nothing is expected after the end; never reopen or append
  if (buffer.frames == 0) return end(held, std::nullopt);

  auto rate = static_cast<int64_t>(buffer.sampleRate);
  if (!writer_) {
    marks.setRate(buffer.sampleRate);
    try {
      writer_ = std::make_shared<WavWriter>(
          path_, rate, 1, [this](const std::string& reason) { writeFailure_ = reason; });
    } catch (const std::exception&) {  // the file's Error, or the first header's system error
      return end(held, "could not open " + path_ + " for writing");
    }
  } else if (writer_->sampleRate() != rate) {
    return end(held, "the voice changed sample rate part-way through");
  }

  auto samples = mono16(buffer);
  if (!samples) return end(held, "the audio format the voice produced could not be written");
  writer_->append(*samples);
  if (writeFailure_) return end(held, "could not write to " + path_ + ": " + *writeFailure_);
  held.unlock();
  marks.addFrames(buffer.frames);
}

void RenderState::waitUntil(std::chrono::steady_clock::time_point deadline,
                            std::chrono::milliseconds slice) {
  std::unique_lock<std::mutex> held(lock_);
  while (!finished_) {
    auto now = std::chrono::steady_clock::now();
    if (now >= deadline) break;
    changed_.wait_until(held, std::min(deadline, now + slice));
  }
}

RenderResult RenderState::result() const {
  std::lock_guard<std::mutex> held(lock_);
  return RenderResult{finished_, failure_, writer_};
}

}  // namespace tallowbrook::Speak
