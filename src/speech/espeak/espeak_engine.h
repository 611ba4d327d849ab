// The speech engine of this build: espeak-ng for voices and synthesis, libpulse for playback.
#pragma once

#include <memory>
#include <string>
#include <thread>

#include "base/silenced_stderr.h"
#include "speech/speech_engine.h"

namespace tallowbrook::Speak {

// espeak-ng in synchronous mode: each synthesis runs on the engine's own thread and hands
// audio and word events to the delegate from there. espeak-ng keeps process-wide state, so a
// process has one engine. Created and called on the main thread; `voices` must not be called
// while a synthesis runs. Standard error (which espeak-ng chatters on) stays silenced for the
// engine's lifetime.
class EspeakEngine : public SpeechEngine {
 public:
  // Initialises espeak-ng from its installed data; throws Error when the data cannot be loaded.
  EspeakEngine();
  ~EspeakEngine() override;

  std::vector<Voice> voices() override;
  void write(const Utterance& utterance, std::shared_ptr<SynthesisDelegate> delegate) override;
  void speak(const Utterance& utterance, std::shared_ptr<PlaybackDelegate> delegate) override;

 private:
  SilencedStderr quiet_;
  int sampleRate_ = 0;
  std::thread worker_;
};

}  // namespace tallowbrook::Speak
