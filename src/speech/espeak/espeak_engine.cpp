#include "speech/espeak/espeak_engine.h"

#include <espeak-ng/speak_lib.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include "base/error.h"

#include "speech/espeak/espeak_settings.h"
#include "speech/espeak/pulse_player.h"
#include "speech/espeak/word_ranges.h"

namespace tallowbrook::Speak {
namespace {

// espeak-ng hands its output to one process-wide callback; the synthesis in progress (at most
// one, on the engine's thread) is reached through this pointer, set and used on that thread.
struct Synthesis {
  WordRanges* words = nullptr;
  double sampleRate = 22050;
  int64_t delivered = 0;                  // samples handed on so far
  SynthesisDelegate* delegate = nullptr;  // render
  PulsePlayer* player = nullptr;          // preview
  std::string playbackError;              // preview: why playing stopped
};
thread_local Synthesis* current = nullptr;

constexpr int kBlockMs = 400;

void deliver(Synthesis& synthesis, const short* samples, int64_t count) {
  if (count <= 0) return;
  AudioBuffer buffer;
  buffer.format = SampleFormat::int16;
  buffer.sampleRate = synthesis.sampleRate;
  buffer.channels = 1;
  buffer.frames = count;
  buffer.data = samples;
  synthesis.delegate->didReceiveBuffer(buffer);
  synthesis.delivered += count;
}

// Render: the audio up to each word's first sample, then the word, then the rest, so a word's
// mark lands exactly where its audio begins. Events past the end of this block (a sentence's
// last word announced with its closing pause) come after the whole block.
int onRenderOutput(short* wav, int count, espeak_EVENT* events) {
  Synthesis& s = *current;
  int64_t start = s.delivered;
  int64_t done = 0;
  for (espeak_EVENT* e = events; e != nullptr && e->type != espeakEVENT_LIST_TERMINATED; ++e) {
    if (e->type != espeakEVENT_WORD) continue;
    int64_t at = std::clamp<int64_t>(int64_t(e->sample) - start, done, count > 0 ? count : 0);
    deliver(s, wav + done, at - done);
    done = at;
    TextRange range = s.words->map(e->text_position, e->length);
    s.delegate->willSpeakRange(range.loc, range.len);
  }
  if (wav != nullptr && count > done) deliver(s, wav + done, count - done);
  return 0;
}

// Preview: every block goes straight to the sound server; a broken stream stops synthesis.
int onPlaybackOutput(short* wav, int count, espeak_EVENT*) {
  Synthesis& s = *current;
  if (wav == nullptr || count <= 0) return 0;
  try {
    s.player->write(wav, size_t(count));
    return 0;
  } catch (const Error& error) {
    s.playbackError = error.what();
    return 1;
  }
}

// Selects the voice and settings of `utterance` and synthesises it with `callback`.
void synthesize(const Utterance& utterance, t_espeak_callback* callback) {
  espeak_SetSynthCallback(callback);
  // The default is the voice the espeak-ng command uses when given none.
  espeak_SetVoiceByName(utterance.voiceId ? utterance.voiceId->c_str() : "en");
  espeak_SetParameter(espeakRATE, wordsPerMinute(utterance.rate), 0);
  espeak_SetParameter(espeakPITCH, espeakPitch(utterance.pitchMultiplier), 0);
  // espeakENDPAUSE: the closing pause the espeak-ng command adds, so the samples equal its own.
  espeak_Synth(utterance.text.c_str(), utterance.text.size() + 1, 0, POS_CHARACTER, 0,
               espeakCHARS_UTF8 | espeakENDPAUSE, nullptr, nullptr);
}

// The first language of an espeak-ng voice's list (priority byte, name, NUL, ...).
std::string firstLanguage(const char* languages) {
  if (languages == nullptr || languages[0] == 0) return {};
  return std::string(languages + 1);
}

// espeak-ng 1.51 creates an audio device for every output mode, synchronous included, and
// creating one connects to the sound server to see whether it answers: a server that accepts
// and never answers holds that for 30 s. The engine only ever hands samples back, so while it
// starts, the sound server's address is one that cannot exist: the probe fails at once and
// espeak-ng goes on without a device. Not thread-safe (the environment is process-wide): the
// engine is made before any other thread of the job starts.
class NoSoundServer {
 public:
  NoSoundServer() {
    const char* current = std::getenv("PULSE_SERVER");
    if (current != nullptr) saved_ = current;
    setenv("PULSE_SERVER", "unix:/nonexistent/tallowbrook-no-sound-server", 1);
  }
  ~NoSoundServer() {
    if (saved_) {
      setenv("PULSE_SERVER", saved_->c_str(), 1);
    } else {
      unsetenv("PULSE_SERVER");
    }
  }
  NoSoundServer(const NoSoundServer&) = delete;
  NoSoundServer& operator=(const NoSoundServer&) = delete;

 private:
  std::optional<std::string> saved_;
};

}  // namespace

EspeakEngine::EspeakEngine() {
  NoSoundServer noSoundServer;
  // Blocks of up to 400 ms: fewer callbacks and writes than espeak-ng's default 60 ms, with the
  // same samples; marks stay exact because blocks are split at each word.
  int rate =
      espeak_Initialize(AUDIO_OUTPUT_SYNCHRONOUS, kBlockMs, nullptr, espeakINITIALIZE_DONT_EXIT);
  if (rate <= 0) {
    throw Error("the espeak-ng voice data could not be loaded (install espeak-ng-data)");
  }
  sampleRate_ = rate;
}

EspeakEngine::~EspeakEngine() {
  if (worker_.joinable()) worker_.join();
}

std::vector<Voice> EspeakEngine::voices() {
  std::vector<Voice> list;
  const espeak_VOICE** all = espeak_ListVoices(nullptr);
  for (; all != nullptr && *all != nullptr; ++all) {
    const espeak_VOICE& v = **all;
    Voice voice;
    voice.id = v.identifier != nullptr ? v.identifier : "";
    voice.name = v.name != nullptr ? v.name : "";
    voice.language = bcp47Language(firstLanguage(v.languages));
    voice.quality = 1;
    voice.gender = v.gender;
    list.push_back(std::move(voice));
  }
  return list;
}

void EspeakEngine::write(const Utterance& utterance, std::shared_ptr<SynthesisDelegate> delegate) {
  double rate = sampleRate_;
  worker_ = std::thread([utterance, delegate, rate] {
    WordRanges words(utterance.text);
    Synthesis synthesis;
    synthesis.words = &words;
    synthesis.sampleRate = rate;
    synthesis.delegate = delegate.get();
    current = &synthesis;
    synthesize(utterance, onRenderOutput);
    current = nullptr;
    AudioBuffer end;  // zero frames: the end of the audio
    end.sampleRate = rate;
    delegate->didReceiveBuffer(end);
  });
}

void EspeakEngine::speak(const Utterance& utterance, std::shared_ptr<PlaybackDelegate> delegate) {
  int rate = sampleRate_;
  worker_ = std::thread([utterance, delegate, rate] {
    std::unique_ptr<PulsePlayer> player;
    try {
      player = std::make_unique<PulsePlayer>(rate, std::chrono::seconds(10));
    } catch (const Error& error) {
      delegate->didFail(error.what());
      return;
    }
    Synthesis synthesis;
    synthesis.player = player.get();
    current = &synthesis;
    synthesize(utterance, onPlaybackOutput);
    current = nullptr;
    if (!synthesis.playbackError.empty()) return delegate->didFail(synthesis.playbackError);
    try {
      player->drain();
    } catch (const Error& error) {
      return delegate->didFail(error.what());
    }
    delegate->didFinish();
  });
}

}  // namespace tallowbrook::Speak

extern "C" tallowbrook::Speak::SpeechEngine* tallowbrook_create_speech_engine() {
  return new tallowbrook::Speak::EspeakEngine();
}
