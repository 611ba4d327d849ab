// The `answer` subcommand: a prompt answered by the local language model, streamed as JSON lines.
#pragma once

namespace tallowbrook::Answer {

// Reads the request from standard input to its end, checks the model, and streams the answer:
// delta lines, then one done line or one error line. Returns once the last line is written
// (exit status 0, also after an error line). Fails (status 1) with "could not parse the request
// on stdin" or "the on-device model is unavailable: " + reason before anything is streamed.
// Main thread only.
void run();

}  // namespace tallowbrook::Answer
