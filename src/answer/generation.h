// One answer's generation, as the llama module does it inside the forked child: what it is asked
// (GenerationJob) and where it reports (GenerationSink). The parent never loads the library; it
// reads the sink's reports from a pipe (generation_child.h).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tallowbrook::Answer {

struct GenerationJob {
  std::string model;        // the GGUF file
  std::string libraryDir;   // llama.cpp's libraries, with one libggml-cpu-*.so per processor family
  std::string jinjaModule;  // the module that renders chat templates with Jinja (chat_prompt.h)
  std::string system;       // the system message
  std::string user;         // the user message
  int64_t maxTokens = 0;    // at most this many tokens of answer (0: none at all)
};

// Receives one generation's reports, in this order: any number of alive(), then either
// unavailable() or refused() (the end), or ready() followed by pieces and alive()s and then one
// done() or failed(). Called by the generating thread, or by a library thread while that thread
// waits inside the library (alive() only); never by two threads at once.
class GenerationSink {
 public:
  virtual ~GenerationSink() = default;

  // The model cannot answer: `reason` is "deviceNotEligible" (the library does not run on this
  // processor) or "modelNotReady" (the model does not load); `detail` says more, for logs.
  virtual void unavailable(std::string_view reason, std::string_view detail) = 0;
  // The request cannot be answered by this model, e.g. a prompt longer than its context; the
  // message is a plain lower-case sentence for the user.
  virtual void refused(std::string_view message) = 0;
  // The model is loaded and the prompt accepted; generation begins.
  virtual void ready() = 0;
  // The next bytes of the answer. A piece may end inside a UTF-8 sequence that the next one
  // completes.
  virtual void piece(std::string_view bytes) = 0;
  // Still working (loading, or evaluating a long prompt); sent at most about once a second.
  virtual void alive() = 0;
  // The answer is complete.
  virtual void done() = 0;
  // Generation failed after ready(); `message` describes why.
  virtual void failed(std::string_view message) = 0;
};

// The llama module's entry: generates `job`, reporting to `sink`, and returns after the last
// report. Runs in the forked child only (it starts the library's threads).
using Generate = void (*)(const GenerationJob& job, GenerationSink& sink);
inline constexpr const char* kGenerateSymbol = "tallowbrook_llama_generate";

}  // namespace tallowbrook::Answer
