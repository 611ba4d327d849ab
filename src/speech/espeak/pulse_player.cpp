#include "speech/espeak/pulse_player.h"

#include <pulse/pulseaudio.h>

#include <algorithm>
#include <string>

#include "base/error.h"

namespace tallowbrook::Speak {
namespace {

void wake(pa_threaded_mainloop* loop) {
  pa_threaded_mainloop_signal(loop, 0);
}

[[noreturn]] void throwContextError(pa_context* context) {
  throw Error(pa_strerror(pa_context_errno(context)));
}

}  // namespace

PulsePlayer::PulsePlayer(int sampleRate, std::chrono::milliseconds timeout)
    : connection_("tallowbrook-helper", timeout) {
  pa_threaded_mainloop* loop = connection_.loop();
  pa_context* context = connection_.context();
  Pulse::LoopLock held(loop);
  pa_sample_spec spec{PA_SAMPLE_S16LE, static_cast<uint32_t>(sampleRate), 1};
  stream_ = pa_stream_new(context, "speech", &spec, nullptr);
  if (stream_ == nullptr) throwContextError(context);
  auto onStream = [](pa_stream*, void* loop) { wake(static_cast<pa_threaded_mainloop*>(loop)); };
  auto onWritable = [](pa_stream*, size_t, void* loop) {
    wake(static_cast<pa_threaded_mainloop*>(loop));
  };
  pa_stream_set_state_callback(stream_, onStream, loop);
  pa_stream_set_write_callback(stream_, onWritable, loop);

  std::string failure;
  const Pulse::LoopDeadline deadline(loop, context, timeout);
  if (pa_stream_connect_playback(stream_, nullptr, nullptr, PA_STREAM_NOFLAGS, nullptr, nullptr) <
      0) {
    failure = pa_strerror(pa_context_errno(context));
  } else {
    for (;;) {
      const pa_stream_state_t state = pa_stream_get_state(stream_);
      if (state == PA_STREAM_READY) break;
      if (!PA_STREAM_IS_GOOD(state)) {
        failure = pa_strerror(pa_context_errno(context));
        break;
      }
      if (deadline.expired()) {
        failure = "the sound server did not open the stream";
        break;
      }
      pa_threaded_mainloop_wait(loop);
    }
  }
  if (!failure.empty()) {
    pa_stream_set_state_callback(stream_, nullptr, nullptr);
    pa_stream_set_write_callback(stream_, nullptr, nullptr);
    pa_stream_disconnect(stream_);
    pa_stream_unref(stream_);
    stream_ = nullptr;
    throw Error(failure);
  }
}

PulsePlayer::~PulsePlayer() {
  if (stream_ == nullptr) return;
  Pulse::LoopLock held(connection_.loop());
  pa_stream_set_state_callback(stream_, nullptr, nullptr);
  pa_stream_set_write_callback(stream_, nullptr, nullptr);
  pa_stream_disconnect(stream_);
  pa_stream_unref(stream_);
}

void PulsePlayer::checkHealthy() {
  if (!PA_CONTEXT_IS_GOOD(pa_context_get_state(connection_.context())) ||
      !PA_STREAM_IS_GOOD(pa_stream_get_state(stream_))) {
    throwContextError(connection_.context());
  }
}

void PulsePlayer::write(const int16_t* samples, size_t count) {
  pa_context* context = connection_.context();
  Pulse::LoopLock held(connection_.loop());
  const auto* bytes = reinterpret_cast<const uint8_t*>(samples);
  size_t left = count * sizeof(int16_t);
  while (left > 0) {
    checkHealthy();
    size_t room = pa_stream_writable_size(stream_);
    if (room == size_t(-1)) throwContextError(context);
    if (room == 0) {
      pa_threaded_mainloop_wait(connection_.loop());
      continue;
    }
    size_t n = std::min(room, left) & ~size_t(1);
    if (n == 0) n = left;
    if (pa_stream_write(stream_, bytes, n, nullptr, 0, PA_SEEK_RELATIVE) < 0) {
      throwContextError(context);
    }
    bytes += n;
    left -= n;
  }
}

void PulsePlayer::drain() {
  pa_context* context = connection_.context();
  Pulse::LoopLock held(connection_.loop());
  struct Drained {
    pa_threaded_mainloop* loop;
    bool done = false;
    bool ok = false;
  } drained{connection_.loop()};
  auto onDrained = [](pa_stream*, int success, void* data) {
    auto* d = static_cast<Drained*>(data);
    d->done = true;
    d->ok = success != 0;
    wake(d->loop);
  };
  pa_operation* op = pa_stream_drain(stream_, onDrained, &drained);
  if (op == nullptr) throwContextError(context);
  while (!drained.done) {
    try {
      checkHealthy();
    } catch (const Error&) {
      pa_operation_cancel(op);
      pa_operation_unref(op);
      throw;
    }
    pa_threaded_mainloop_wait(connection_.loop());
  }
  pa_operation_unref(op);
  if (!drained.ok) throwContextError(context);
}

}  // namespace tallowbrook::Speak
