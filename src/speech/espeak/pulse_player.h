// Playing 16-bit mono samples through the default PulseAudio sink (PipeWire desktops serve it
// through pipewire-pulse).
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

#include "audio/pulse/pulse_connection.h"

namespace tallowbrook::Speak {

// One playback stream on a connection of its own (the audio core's Pulse::Connection), driven by
// libpulse's threaded main loop. All members are called from one thread (the synthesiser's),
// never from libpulse's loop thread; libpulse's callbacks only wake that caller. The main loop's
// own lock guards the stream. Failures throw Error with the sound server's reason.
class PulsePlayer {
 public:
  // Connects to the sound server (never starts one) and opens a playback stream of s16 mono at
  // `sampleRate` on the default sink, waiting at most `timeout` for each.
  PulsePlayer(int sampleRate, std::chrono::milliseconds timeout);
  ~PulsePlayer();
  PulsePlayer(const PulsePlayer&) = delete;
  PulsePlayer& operator=(const PulsePlayer&) = delete;

  // Queues `count` samples, waiting while the stream's buffer is full. Throws when the stream
  // or the connection broke.
  void write(const int16_t* samples, size_t count);

  // Waits until everything written has been played. Throws on failure.
  void drain();

 private:
  // Throws the context's error when the connection or the stream broke. Main loop lock held.
  void checkHealthy();

  Pulse::Connection connection_;
  pa_stream* stream_ = nullptr;
};

}  // namespace tallowbrook::Speak
