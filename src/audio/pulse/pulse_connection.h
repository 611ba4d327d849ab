// PulseConnection: one client connection to the sound server (PulseAudio, or PipeWire through
// pipewire-pulse) on a threaded main loop of its own.
#pragma once

#include <pulse/pulseaudio.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "audio/audio_format.h"
#include "base/error.h"

namespace tallowbrook::Pulse {

// A failed connection, with the sound server's reason: `accessDenied` when the server refused
// this client, otherwise no server could be reached or it did not answer.
struct ConnectError : Error {
  ConnectError(const std::string& what, bool denied) : Error(what), accessDenied(denied) {}
  bool accessDenied;
};

struct SourceInfo {
  uint32_t index = PA_INVALID_INDEX;
  std::string name;         // the UID
  std::string description;  // the name shown to the user
  pa_sample_spec spec{};
  bool monitor = false;      // the monitor of a sink: not an input
  std::string formFactor;    // device.form_factor
  std::string activePort;    // name of the active port, if any
  std::string masterDevice;  // device.master_device (remap, loopback)
  std::string bus;           // device.bus
};

struct ServerInfo {
  std::string defaultSource;
  std::string defaultSink;
};

// The sample format of `spec` as this recorder reads it: s16, s32 or float32 little-endian as
// they are; any other layout is asked for as s16 (the server converts). Pure.
AudioFormat recordFormat(const pa_sample_spec& spec);
// The server's sample spec for `format`. Pure.
pa_sample_spec sampleSpec(const AudioFormat& format);

// How long a connection waits for the server to answer by default: a server that accepts the
// socket and then says nothing must not hang the helper.
inline constexpr std::chrono::milliseconds kConnectTimeout{10000};

// One client connection, used by every job that talks to the sound server (recording, speech
// preview). Owns the main loop thread and the context. Queries block the caller until the server
// answers and must not be made from the main loop thread (from a stream or event callback).
// Events come on the main loop thread with its lock held.
class Connection {
 public:
  // Connects (never starting a server), or throws ConnectError: refused, or no answer within
  // `timeout` ("the sound server did not answer").
  explicit Connection(const char* clientName, std::chrono::milliseconds timeout = kConnectTimeout);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // Whether the connection still stands. Any thread.
  bool alive();

  std::vector<SourceInfo> sources();
  std::optional<ServerInfo> server();
  // The monitor source of sink `name`, if it has one.
  std::optional<std::string> sinkMonitor(const std::string& name);

  // Subscription: `handler(facility, type, index)` for source and server events, and
  // `handler(-1, 0, 0)` once when the connection breaks. Set before events are wanted; runs on
  // the main loop thread with its lock held.
  using EventHandler = std::function<void(int facility, int type, uint32_t index)>;
  void subscribe(EventHandler handler);
  // Drops the handler: no event reaches it after this returns. Not from the main loop thread.
  void unsubscribe();

  pa_threaded_mainloop* loop() { return loop_; }
  pa_context* context() { return context_; }

 private:
  static void stateCallback(pa_context* context, void* self);
  static void eventCallback(pa_context* context, pa_subscription_event_type_t type, uint32_t index,
                            void* self);
  // Waits (main loop lock held) until `op` is done; unrefs it.
  void await(pa_operation* op);
  // Waits (main loop lock held) until the context is ready; 0, or the libpulse error.
  int awaitReady(std::chrono::milliseconds timeout);

  pa_threaded_mainloop* loop_ = nullptr;
  pa_context* context_ = nullptr;
  EventHandler handler_;  // guarded by the main loop lock
  bool broken_ = false;   // guarded by the main loop lock
};

// A time limit for waits on a main loop: once `timeout` has passed, `expired()` is true and the
// waiters are woken. Made, asked and destroyed with the main loop lock held.
class LoopDeadline {
 public:
  LoopDeadline(pa_threaded_mainloop* loop, pa_context* context, std::chrono::milliseconds timeout);
  ~LoopDeadline();
  LoopDeadline(const LoopDeadline&) = delete;
  LoopDeadline& operator=(const LoopDeadline&) = delete;

  bool expired() const { return expired_; }

 private:
  pa_threaded_mainloop* loop_;
  pa_time_event* timer_ = nullptr;
  bool expired_ = false;  // main loop lock
};

// Holds the main loop lock of `connection` for a scope.
class LoopLock {
 public:
  explicit LoopLock(pa_threaded_mainloop* loop) : loop_(loop) { pa_threaded_mainloop_lock(loop_); }
  ~LoopLock() { pa_threaded_mainloop_unlock(loop_); }
  LoopLock(const LoopLock&) = delete;
  LoopLock& operator=(const LoopLock&) = delete;

 private:
  pa_threaded_mainloop* loop_;
};

// A record stream on one source, delivering each fragment to `deliver` on the main loop thread;
// `ended(why)` is told once if the server ends it. Connect and disconnect from any thread but
// the main loop's.
class RecordStream {
 public:
  using Deliver = std::function<void(const PcmBuffer& buffer)>;
  using Ended = std::function<void(const std::string& why)>;

  // Connects to `source` in `format`, asking for fragments of `fragment` (the server
  // delivers that much audio at a time); throws std::runtime_error with the server's reason.
  RecordStream(Connection& connection, const std::string& source, const AudioFormat& format,
               std::chrono::milliseconds fragment, Deliver deliver, Ended ended);
  // Disconnects; no callback runs after it returns.
  ~RecordStream();
  RecordStream(const RecordStream&) = delete;
  RecordStream& operator=(const RecordStream&) = delete;

  uint32_t sourceIndex() const { return sourceIndex_; }

 private:
  static void stateCallback(pa_stream* stream, void* self);
  static void readCallback(pa_stream* stream, size_t bytes, void* self);

  Connection& connection_;
  pa_stream* stream_ = nullptr;
  const AudioFormat format_;
  const Deliver deliver_;
  const Ended ended_;
  bool connected_ = false;  // main loop lock
  bool endedTold_ = false;  // main loop lock
  uint32_t sourceIndex_ = PA_INVALID_INDEX;
};

}  // namespace tallowbrook::Pulse
