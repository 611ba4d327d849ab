// Playing 16-bit mono samples through the default PulseAudio sink (PipeWire desktops serve it
// through pipewire-pulse).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

struct pa_context;
struct pa_stream;
struct pa_threaded_mainloop;

namespace tallowbrook::Speak {

// One playback stream on a connection of its own, driven by libpulse's threaded main loop.
// All members are called from one thread (the synthesiser's), never from libpulse's loop
// thread; libpulse's callbacks only wake that caller. The main loop's own lock guards the
// context and the stream.
class PulsePlayer {
 public:
  PulsePlayer() = default;
  ~PulsePlayer();
  PulsePlayer(const PulsePlayer&) = delete;
  PulsePlayer& operator=(const PulsePlayer&) = delete;

  // Connects to the sound server (never starts one) and opens a playback stream of s16 mono
  // at `sampleRate` on the default sink. Gives up after `timeoutSeconds` without an answer.
  // Returns false with the reason in `*error`.
  bool open(int sampleRate, int timeoutSeconds, std::string* error);

  // Queues `count` samples, waiting while the stream's buffer is full. False with the reason
  // when the stream or the connection broke.
  bool write(const int16_t* samples, size_t count, std::string* error);

  // Waits until everything written has been played. False with the reason on failure.
  bool drain(std::string* error);

 private:
  bool healthy(std::string* error);

  pa_threaded_mainloop* loop_ = nullptr;
  pa_context* context_ = nullptr;
  pa_stream* stream_ = nullptr;
  bool timedOut_ = false;  // guarded by the main loop's lock
};

}  // namespace tallowbrook::Speak
