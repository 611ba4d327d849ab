// The state a render shares between the synthesiser's buffer callback and the waiting command.
#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "audio/wav_writer.h"
#include "speech/speak_marks.h"
#include "speech/speech_engine.h"

namespace tallowbrook::Speak {

// What the command reads after the wait.
struct RenderResult {
  bool finished = false;
  std::optional<std::string> failure;
  std::shared_ptr<WavWriter> writer;  // null when no audio ever arrived
};

// The delegate of a render: writes each buffer into the WAV file at `path` (created when the
// first buffer arrives, at that buffer's rate, mono) and keeps the marks.
//
// The synthesiser's thread calls willSpeakRange and didReceiveBuffer; the main thread calls
// waitUntil and result. `lock_` guards `writer_`, `finished_`, `failure_` and `writeFailure_`;
// it is held while the writer appends (so the writer's lock, and its reporter, run inside it)
// and never while `marks` is locked. `marks` has its own lock.
class RenderState : public SynthesisDelegate {
 public:
  explicit RenderState(std::string path);

  void willSpeakRange(int64_t loc, int64_t len) override;

  // A buffer that is not PCM is ignored; a zero-frame PCM buffer marks the end. The first
  // buffer sets marks' rate and opens the writer ("could not open <path> for writing" when it
  // cannot); a later change of rate fails with "the voice changed sample rate part-way
  // through", a format mono16 cannot read with "the audio format the voice produced could not
  // be written", a write the file refuses (a full disk) with "could not write to <path>:
  // <reason>". A failure also ends the render. Otherwise the samples are appended and their
  // frames counted in `marks`.
  void didReceiveBuffer(const AudioBuffer& buffer) override;

  // Waits in steps of at most `slice` until the render ended or `deadline` passed. Main thread.
  void waitUntil(std::chrono::steady_clock::time_point deadline, std::chrono::milliseconds slice);

  RenderResult result() const;

  Marks marks;

 private:
  void end(std::unique_lock<std::mutex>& held, std::optional<std::string> failure);

  const std::string path_;
  mutable std::mutex lock_;
  std::condition_variable changed_;
  std::shared_ptr<WavWriter> writer_;   // guarded by lock_
  bool finished_ = false;               // guarded by lock_
  std::optional<std::string> failure_;  // guarded by lock_
  // Set by the writer's reporter, which runs inside didReceiveBuffer's append, so under lock_.
  std::optional<std::string> writeFailure_;
};

}  // namespace tallowbrook::Speak
