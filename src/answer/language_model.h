// The model behind `answer`, seen as a stream of snapshots. The real one is llama.cpp in a
// child process (generation_child.h); unit tests script one.
#pragma once

#include <string>

namespace tallowbrook::Answer {

// One step of a response stream.
struct StreamEvent {
  enum class Kind {
    snapshot,  // `text` is the whole answer so far
    ended,     // the answer is complete
    failed,    // generation failed; `text` describes why
  };
  Kind kind = Kind::ended;
  std::string text;
};

class ResponseStream {
 public:
  virtual ~ResponseStream() = default;

  // Blocks until the next event. After `ended` or `failed` it is not called again. Called by
  // the one thread that streams the answer.
  virtual StreamEvent next() = 0;
};

}  // namespace tallowbrook::Answer
