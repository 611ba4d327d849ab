// Generation in a child process: the helper forks (no exec), the child runs the language model
// and reports through a pipe (child_frames.h), and the helper turns the reports into snapshots.
// The library's asserts call abort(); in the child they end only the child, so the helper can
// still end the answer with its error line. The child dies with the helper (PR_SET_PDEATHSIG).
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "answer/child_frames.h"
#include "answer/generation.h"
#include "answer/language_model.h"
#include "answer/stable_text.h"
#include "text/user_characters.h"

namespace tallowbrook::Answer {

// A child that reports nothing at all for this long (it reports "alive" about once a second
// while it works) is taken as hung, killed and reaped.
inline constexpr std::chrono::seconds kNoProgressLimit{30};

class GenerationChild final : public ResponseStream {
 public:
  // What the child runs: one generation, reported to the sink. It runs in a forked copy of this
  // process, with standard input and output on /dev/null and standard error on a pipe whose
  // last line the helper quotes if the child dies.
  using Body = std::function<void(GenerationSink& sink)>;

  // The outcome of start(): a child that is ready and generating, or why there is none.
  struct Started {
    std::unique_ptr<GenerationChild> child;
    std::string unavailableReason;  // "deviceNotEligible" or "modelNotReady"
    std::string refusal;            // the child's message when it refused the request
  };

  // Forks the child, runs `body` there, and waits until it is ready, refuses, reports the model
  // unavailable, dies ("modelNotReady") or stays silent for the no-progress limit (killed;
  // "modelNotReady"). Call from the main thread while no other thread runs (fork copies only the
  // calling thread). `characters` must outlive the child object.
  static Started start(const Body& body, const Text::UserCharacters& characters,
                       std::chrono::milliseconds noProgressLimit = kNoProgressLimit);

  // Kills the child if it still runs and reaps it.
  ~GenerationChild() override;

  GenerationChild(const GenerationChild&) = delete;
  GenerationChild& operator=(const GenerationChild&) = delete;

  // The answer so far, as settled text (stable_text.h), each time it grows; then `ended` after
  // the child's done, or `failed` when the child reports a failure, dies, sends garbage or stays
  // silent for the limit (then it is killed). Before `failed` the settled text is flushed as a
  // last snapshot. After `ended` or `failed` the child has been reaped. Called by one thread.
  StreamEvent next() override;

 private:
  GenerationChild(pid_t pid, int reports, int errors, const Text::UserCharacters& characters,
                  std::chrono::milliseconds noProgressLimit);

  enum class Read { frame, closed, timedOut, garbage };
  // The next frame, reading the pipes until one is whole or the child closes its end, sends
  // something that is not a frame, or is silent for the no-progress limit.
  Read readFrame(Frame* frame);
  // Kills the child and waits for it; describes how it ended.
  std::string finish();
  // The last snapshot before an end, if the settled text grows by finishing it.
  bool flushInto(StreamEvent* event);

  pid_t pid_;
  int reports_, errors_;
  FrameReader reader_;
  std::string errorTail_;  // the end of what the child wrote on standard error
  StableText text_;
  std::chrono::milliseconds noProgressLimit_;
  bool reaped_ = false;
  std::optional<StreamEvent> pendingEnd_;  // the end to report after a flushed snapshot
};

}  // namespace tallowbrook::Answer
