#include "speech/speak.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "base/error.h"
#include "base/fail.h"
#include "base/module.h"
#include "base/out.h"
#include "base/standard_input.h"
#include "speech/render_state.h"
#include "speech/speak_options.h"
#include "speech/speak_playback.h"
#include "speech/speech_text.h"

namespace tallowbrook::Speak {
namespace {

constexpr const char* kUsage = "usage: speak <voices|render|preview>";
constexpr const char* kRenderUsage = "usage: render --out <path> [--voice id] [--rate f]";

std::unique_ptr<SpeechEngine> loadEngine() {
  auto create = moduleEntry<CreateSpeechEngine>("speech", kCreateSpeechEngineSymbol);
  try {
    return std::unique_ptr<SpeechEngine>(create());
  } catch (const Error& error) {
    fail(error.what());
  }
}

SpeechEngine& engineOf(Environment& env) {
  if (!env.engine) env.engine = env.createEngine();
  return *env.engine;
}

// The failure for a voice identifier that no installed voice has, or nothing.
Failure checkVoice(const std::optional<std::string>& id, SpeechEngine& engine) {
  if (!id) return std::nullopt;
  auto installed = engine.voices();
  bool found = std::any_of(installed.begin(), installed.end(),
                           [&](const Voice& voice) { return voice.id == *id; });
  if (found) return std::nullopt;
  return "no voice with identifier " + *id + " is installed";
}

Json voiceLine(const Voice& voice) {
  return Json{{"type", "voice"},          {"id", voice.id},
              {"name", voice.name},       {"language", voice.language},
              {"quality", voice.quality}, {"gender", voice.gender},
              {"novelty", voice.novelty}, {"personal", voice.personal}};
}

}  // namespace

Failure voices(Environment& env) {
  for (const Voice& voice : engineOf(env).voices()) writeJsonLine(voiceLine(voice));
  writeJsonLine(Json{{"type", "done"}});
  return std::nullopt;
}

Failure render(const std::vector<std::string>& args, Environment& env) {
  if (args.empty()) return kRenderUsage;
  Options options = scanOptions(args);
  if (!options.out) return kRenderUsage;

  std::optional<std::string> input = env.readInput();
  if (!input) return kTooMuchText;
  std::string text = decodeText(*input);
  if (isBlank(text)) return "there is no text to read";

  SpeechEngine& engine = engineOf(env);
  if (Failure failure = checkVoice(options.voice, engine)) return failure;

  Utterance utterance{text, options.voice, options.rate, options.pitch};
  auto state = std::make_shared<RenderState>(*options.out);
  engine.write(utterance, state);
  state->waitUntil(std::chrono::steady_clock::now() + env.renderLimit, env.waitSlice);

  RenderResult result = state->result();
  if (result.failure) return result.failure;
  if (!result.finished) return "the voice did not finish within ten minutes";
  if (!result.writer) return "the voice produced no audio at all";
  result.writer->finish();

  MarksSnapshot marks = state->marks.snapshot();
  for (const Mark& mark : marks.marks) {
    writeJsonLine(
        Json{{"type", "mark"}, {"atMs", mark.atMs}, {"loc", mark.loc}, {"len", mark.len}});
  }
  writeJsonLine(Json{{"type", "done"},
                     {"ms", millisecondsOf(marks.frames, marks.rate)},
                     {"sampleRate", static_cast<int64_t>(marks.rate)},
                     {"frames", marks.frames}});
  return std::nullopt;
}

Failure preview(const std::vector<std::string>& args, Environment& env) {
  Options options = scanOptions(args, OptionSet::preview);
  std::optional<std::string> input = env.readInput();
  if (!input) return kTooMuchText;
  std::string text = decodeText(*input);
  if (isBlank(text)) text = kSampleSentence;

  SpeechEngine& engine = engineOf(env);
  if (Failure failure = checkVoice(options.voice, engine)) return failure;

  Utterance utterance{text, options.voice, options.rate, 1.0f};
  auto playback = std::make_shared<Playback>();
  engine.speak(utterance, playback);
  if (!playback->waitUntil(std::chrono::steady_clock::now() + env.previewLimit, env.waitSlice)) {
    return "the voice did not finish speaking";
  }
  writeJsonLine(Json{{"type", "done"}});
  return std::nullopt;
}

Failure runWith(const std::vector<std::string>& args, Environment& env) {
  if (args.empty()) return kUsage;
  const std::string& action = args.front();
  const std::vector<std::string> rest(args.begin() + 1, args.end());
  if (action == "voices") return voices(env);
  if (action == "render") return render(rest, env);
  if (action == "preview") return preview(rest, env);
  return "unknown speak command: " + action;
}

void run(const std::vector<std::string>& args) {
  // Lives until the process ends: a failed run exits while a synthesis may still be going.
  static Environment env;
  env.readInput = [] { return readStandardInput(kMaxTextBytes); };
  env.createEngine = loadEngine;
  if (Failure failure = runWith(args, env)) fail(*failure);
}

}  // namespace tallowbrook::Speak
