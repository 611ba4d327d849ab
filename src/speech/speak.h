// The `speak` subcommand: lists the voices, renders text into a WAV file with word marks, or
// previews a voice aloud.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "speech/speech_engine.h"

namespace tallowbrook::Speak {

// What a speak run talks to: standard input and the synthesiser, and how long it waits.
struct Environment {
  // Reads standard input to its end; nothing when it holds more than kMaxTextBytes. Called at
  // most once, on the main thread.
  std::function<std::optional<std::string>()> readInput;
  // Creates the synthesiser (loads its module), or fails the run. Called at most once, on the
  // main thread, and only once the command line and the input are known to be usable.
  std::function<std::unique_ptr<SpeechEngine>()> createEngine;
  std::chrono::milliseconds renderLimit{std::chrono::minutes(10)};
  std::chrono::milliseconds previewLimit{std::chrono::minutes(2)};
  std::chrono::milliseconds waitSlice{20};

  // The engine, once created. Kept here (not inside the command) so that a failing run ends
  // the process without waiting for a synthesis that is still going.
  std::unique_ptr<SpeechEngine> engine;
};

// The failure a run ends with, or nothing when it succeeded.
using Failure = std::optional<std::string>;

// `speak <voices|render|preview> ...`: prints the run's lines and returns, or ends the process
// through `fail`. Main thread only.
void run(const std::vector<std::string>& args);

// The whole command over `env`: prints the lines of a successful run (voice/mark/done) and
// returns nothing, or returns the failure message without printing it. `env` must outlive any
// synthesis it started (a failed run may leave one going). Main thread only.
Failure runWith(const std::vector<std::string>& args, Environment& env);

// The parts of runWith, same contract; `args` are the words after the action word.
Failure voices(Environment& env);
Failure render(const std::vector<std::string>& args, Environment& env);
Failure preview(const std::vector<std::string>& args, Environment& env);

// The sentence a preview speaks when standard input holds no text.
// More text than any voice reads within its ten minutes, many times over: standard input is
// not read past it, and the run fails with kTooMuchText.
inline constexpr size_t kMaxTextBytes = 16u << 20;
inline constexpr const char* kTooMuchText = "there is more text than can be read (over 16 MiB)";
inline constexpr const char* kSampleSentence = "The quick brown fox jumps over the lazy dog.";

}  // namespace tallowbrook::Speak
