#include "speech/espeak/pulse_player.h"

#include <pulse/pulseaudio.h>

#include <algorithm>

namespace tallowbrook::Speak {
namespace {

struct LoopHold {
  explicit LoopHold(pa_threaded_mainloop* loop) : loop(loop) { pa_threaded_mainloop_lock(loop); }
  ~LoopHold() { pa_threaded_mainloop_unlock(loop); }
  pa_threaded_mainloop* loop;
};

void wake(pa_threaded_mainloop* loop) {
  pa_threaded_mainloop_signal(loop, 0);
}

std::string contextError(pa_context* context) {
  return pa_strerror(pa_context_errno(context));
}

}  // namespace

PulsePlayer::~PulsePlayer() {
  if (loop_ != nullptr) pa_threaded_mainloop_stop(loop_);
  if (stream_ != nullptr) {
    pa_stream_disconnect(stream_);
    pa_stream_unref(stream_);
  }
  if (context_ != nullptr) {
    pa_context_disconnect(context_);
    pa_context_unref(context_);
  }
  if (loop_ != nullptr) pa_threaded_mainloop_free(loop_);
}

bool PulsePlayer::open(int sampleRate, int timeoutSeconds, std::string* error) {
  loop_ = pa_threaded_mainloop_new();
  if (loop_ == nullptr) {
    *error = "could not start the sound server connection";
    return false;
  }
  context_ = pa_context_new(pa_threaded_mainloop_get_api(loop_), "tallowbrook-helper");
  if (context_ == nullptr) {
    *error = "could not start the sound server connection";
    return false;
  }
  auto onChange = [](pa_context*, void* loop) { wake(static_cast<pa_threaded_mainloop*>(loop)); };
  pa_context_set_state_callback(context_, onChange, loop_);
  if (pa_context_connect(context_, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
    *error = contextError(context_);
    return false;
  }
  if (pa_threaded_mainloop_start(loop_) < 0) {
    *error = "could not start the sound server connection";
    return false;
  }

  LoopHold hold(loop_);
  auto onTimeout = [](pa_mainloop_api*, pa_time_event*, const struct timeval*, void* self) {
    auto* player = static_cast<PulsePlayer*>(self);
    player->timedOut_ = true;
    wake(player->loop_);
  };
  pa_time_event* timer = pa_context_rttime_new(
      context_, pa_rtclock_now() + pa_usec_t(timeoutSeconds) * PA_USEC_PER_SEC, onTimeout, this);

  bool ready = false;
  for (;;) {
    pa_context_state_t state = pa_context_get_state(context_);
    if (state == PA_CONTEXT_READY) break;
    if (!PA_CONTEXT_IS_GOOD(state)) {
      *error = contextError(context_);
      break;
    }
    if (timedOut_) {
      *error = "the sound server did not answer";
      break;
    }
    pa_threaded_mainloop_wait(loop_);
  }

  if (pa_context_get_state(context_) == PA_CONTEXT_READY && !timedOut_) {
    pa_sample_spec spec{PA_SAMPLE_S16LE, static_cast<uint32_t>(sampleRate), 1};
    stream_ = pa_stream_new(context_, "speech", &spec, nullptr);
    if (stream_ == nullptr) {
      *error = contextError(context_);
    } else {
      auto onStream = [](pa_stream*, void* loop) {
        wake(static_cast<pa_threaded_mainloop*>(loop));
      };
      auto onWritable = [](pa_stream*, size_t, void* loop) {
        wake(static_cast<pa_threaded_mainloop*>(loop));
      };
      pa_stream_set_state_callback(stream_, onStream, loop_);
      pa_stream_set_write_callback(stream_, onWritable, loop_);
      if (pa_stream_connect_playback(stream_, nullptr, nullptr, PA_STREAM_NOFLAGS, nullptr,
                                     nullptr) < 0) {
        *error = contextError(context_);
      } else {
        for (;;) {
          pa_stream_state_t state = pa_stream_get_state(stream_);
          if (state == PA_STREAM_READY) {
            ready = true;
            break;
          }
          if (!PA_STREAM_IS_GOOD(state)) {
            *error = contextError(context_);
            break;
          }
          if (timedOut_) {
            *error = "the sound server did not open the stream";
            break;
          }
          pa_threaded_mainloop_wait(loop_);
        }
      }
    }
  }
  if (timer != nullptr) pa_threaded_mainloop_get_api(loop_)->time_free(timer);
  return ready;
}

bool PulsePlayer::healthy(std::string* error) {
  if (!PA_CONTEXT_IS_GOOD(pa_context_get_state(context_)) ||
      !PA_STREAM_IS_GOOD(pa_stream_get_state(stream_))) {
    *error = contextError(context_);
    return false;
  }
  return true;
}

bool PulsePlayer::write(const int16_t* samples, size_t count, std::string* error) {
  LoopHold hold(loop_);
  const auto* bytes = reinterpret_cast<const uint8_t*>(samples);
  size_t left = count * sizeof(int16_t);
  while (left > 0) {
    if (!healthy(error)) return false;
    size_t room = pa_stream_writable_size(stream_);
    if (room == size_t(-1)) {
      *error = contextError(context_);
      return false;
    }
    if (room == 0) {
      pa_threaded_mainloop_wait(loop_);
      continue;
    }
    size_t n = std::min(room, left) & ~size_t(1);
    if (n == 0) n = left;
    if (pa_stream_write(stream_, bytes, n, nullptr, 0, PA_SEEK_RELATIVE) < 0) {
      *error = contextError(context_);
      return false;
    }
    bytes += n;
    left -= n;
  }
  return true;
}

bool PulsePlayer::drain(std::string* error) {
  LoopHold hold(loop_);
  struct Drained {
    pa_threaded_mainloop* loop;
    bool done = false;
    bool ok = false;
  } drained{loop_};
  auto onDrained = [](pa_stream*, int success, void* data) {
    auto* d = static_cast<Drained*>(data);
    d->done = true;
    d->ok = success != 0;
    wake(d->loop);
  };
  pa_operation* op = pa_stream_drain(stream_, onDrained, &drained);
  if (op == nullptr) {
    *error = contextError(context_);
    return false;
  }
  while (!drained.done) {
    if (!healthy(error)) {
      pa_operation_cancel(op);
      pa_operation_unref(op);
      return false;
    }
    pa_threaded_mainloop_wait(loop_);
  }
  pa_operation_unref(op);
  if (!drained.ok) *error = contextError(context_);
  return drained.ok;
}

}  // namespace tallowbrook::Speak
