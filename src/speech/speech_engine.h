// The platform's speech synthesiser, behind an interface so the speak command's logic is tested
// with a fake and the real synthesiser (espeak-ng, with libpulse for playback) lives in a module
// loaded only for speak.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tallowbrook::Speak {

// One installed voice, as the synthesiser describes it.
struct Voice {
  std::string id;        // the identifier --voice accepts
  std::string name;      // the synthesiser's name for it
  std::string language;  // BCP-47-style code ("en-GB", "cmn-Latn-pinyin")
  int quality = 1;       // the synthesiser's raw quality value
  int gender = 0;        // the synthesiser's raw value: 0 unspecified, 1 male, 2 female
  bool novelty = false;
  bool personal = false;
};

// What to say and how.
struct Utterance {
  std::string text;                    // UTF-8, spoken as given (not trimmed)
  std::optional<std::string> voiceId;  // absent: the synthesiser's default voice
  float rate = 0.5f;                   // 0 slowest ... 1 fastest; 0.5 the default
  float pitchMultiplier = 1.0f;        // 0.5 ... 2.0; 1 the voice's own pitch
};

enum class SampleFormat { float32, int16, int32 };

// A piece of synthesised audio. `data` points at frames x channels interleaved samples of
// `format`, valid only during the call that hands the buffer over.
struct AudioBuffer {
  bool isPcm = true;  // false for anything the synthesiser delivers that is not PCM audio
  SampleFormat format = SampleFormat::int16;
  double sampleRate = 22050.0;
  int channels = 1;
  int64_t frames = 0;
  const void* data = nullptr;
};

// Receives a synthesis in order: word ranges and audio buffers as the synthesiser produces
// them, then one PCM buffer with zero frames that marks the end. Called on the synthesiser's
// own thread, one call at a time.
class SynthesisDelegate {
 public:
  virtual ~SynthesisDelegate() = default;
  // The synthesiser is about to speak the range [loc, loc + len) of the text, in UTF-16 code
  // units; its audio begins with the next buffer.
  virtual void willSpeakRange(int64_t loc, int64_t len) = 0;
  virtual void didReceiveBuffer(const AudioBuffer& buffer) = 0;
};

// Learns how speaking aloud ended. Called once, on the synthesiser's own thread.
class PlaybackDelegate {
 public:
  virtual ~PlaybackDelegate() = default;
  // Everything was spoken and the sound server has played it out.
  virtual void didFinish() = 0;
  // Speaking was cancelled part-way.
  virtual void didCancel() = 0;
  // Nothing could be played (no sound server, the server refused the stream); `reason` says why.
  virtual void didFail(const std::string& reason) = 0;
};

// One engine per run, created and used on the main thread; its synthesis runs on a thread of
// its own. Destroying the engine waits for that thread to end.
class SpeechEngine {
 public:
  virtual ~SpeechEngine() = default;

  // The installed voices in the synthesiser's own order. Main thread, before any synthesis.
  virtual std::vector<Voice> voices() = 0;

  // Starts synthesising `utterance` into buffers for `delegate` and returns at once. The
  // engine keeps `delegate` alive until it has delivered the end. At most once per engine.
  // `utterance.voiceId`, when given, is one of `voices()`.
  virtual void write(const Utterance& utterance, std::shared_ptr<SynthesisDelegate> delegate) = 0;

  // Starts speaking `utterance` aloud through the default output and returns at once; ends
  // with exactly one call on `delegate`. At most once per engine.
  virtual void speak(const Utterance& utterance, std::shared_ptr<PlaybackDelegate> delegate) = 0;
};

// The entry a synthesiser module exports: a new engine owned by the caller; throws Error with the
// reason when the synthesiser cannot start (its data is missing).
using CreateSpeechEngine = SpeechEngine* (*)();
inline constexpr const char* kCreateSpeechEngineSymbol = "tallowbrook_create_speech_engine";

}  // namespace tallowbrook::Speak
