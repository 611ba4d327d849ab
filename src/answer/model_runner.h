// The client side of the model runner: the Node program in runtime/model-runner that hosts
// llama.cpp. One runner process per answer, spoken to over pipes: the request as one JSON object
// on its standard input, JSON lines back on its standard output (see runner.mjs).
#pragma once

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "answer/answer_request.h"
#include "answer/language_model.h"
#include "answer/model_availability.h"

namespace tallowbrook::Answer {

// A runner that sends no line at all (it sends "alive" every second while working) for this
// long is taken as hung, killed and reaped.
inline constexpr std::chrono::seconds kRunnerNoProgressLimit{30};

class ModelRunner final : public ResponseStream {
 public:
  // The outcome of start(): a runner that has loaded the model and begun generating, or the
  // unavailability reason ("deviceNotEligible": Node or the runner cannot run; "modelNotReady":
  // the model does not load).
  struct Started {
    std::unique_ptr<ModelRunner> runner;
    std::string unavailableReason;
  };

  // Starts `setup.node setup.runnerDir/runner.mjs` in its own process group, hands it the
  // request (maxTokens below 0 is sent as 0) and waits until it reports the model loaded.
  // Blocks; the calling thread then owns the runner.
  static Started start(const ModelSetup& setup, const Request& request,
                       std::chrono::milliseconds noProgressLimit = kRunnerNoProgressLimit);

  // Kills the runner's process group if it still runs, and reaps the runner.
  ~ModelRunner() override;

  ModelRunner(const ModelRunner&) = delete;
  ModelRunner& operator=(const ModelRunner&) = delete;

  // The answer so far after each piece of text; `ended` after the runner's "done"; `failed`
  // with a plain description when the runner reports an error, sends something that is not
  // one of its lines, exits or is killed before "done", or makes no progress for the limit
  // (then it is killed). After `ended` or `failed` the runner has been reaped.
  StreamEvent next() override;

 private:
  struct Line {
    enum class Kind { line, closed, timedOut } kind;
    std::string text;
  };

  ModelRunner(pid_t pid, int input, int output, int errors, std::string request,
              std::chrono::milliseconds noProgressLimit);

  // Writes pending request bytes and reads output until a whole line is there, standard output
  // closes, or nothing arrives for the no-progress limit.
  Line readLine();
  // Kills the runner's process group and waits for the runner; describes how it ended.
  std::string finish();
  void closeAll();

  pid_t pid_;
  int input_, output_, errors_;
  std::string request_;
  size_t requestWritten_ = 0;
  std::string pending_;    // bytes of standard output after the last whole line
  std::string errorTail_;  // the end of what the runner wrote on standard error
  std::string snapshot_;   // the answer so far
  std::chrono::milliseconds noProgressLimit_;
  bool reaped_ = false;
};

}  // namespace tallowbrook::Answer
