#include "audio/pulse/pulse_connection.h"

#include <cstring>
#include <utility>

namespace tallowbrook::Pulse {
namespace {

std::string property(pa_proplist* list, const char* key) {
  const char* value = list ? pa_proplist_gets(list, key) : nullptr;
  return value ? value : "";
}

}  // namespace

AudioFormat recordFormat(const pa_sample_spec& spec) {
  AudioFormat format;
  format.sampleRate = spec.rate;
  format.channels = spec.channels;
  switch (spec.format) {
    case PA_SAMPLE_S32LE:
      format.type = SampleType::s32;
      break;
    case PA_SAMPLE_FLOAT32LE:
      format.type = SampleType::float32;
      break;
    default:
      format.type = SampleType::s16;
      break;
  }
  return format;
}

pa_sample_spec sampleSpec(const AudioFormat& format) {
  pa_sample_spec spec{};
  spec.format = format.type == SampleType::s32       ? PA_SAMPLE_S32LE
                : format.type == SampleType::float32 ? PA_SAMPLE_FLOAT32LE
                                                     : PA_SAMPLE_S16LE;
  spec.rate = uint32_t(format.sampleRate);
  spec.channels = uint8_t(format.channels);
  return spec;
}

Connection::Connection(const char* clientName, std::chrono::milliseconds timeout) {
  loop_ = pa_threaded_mainloop_new();
  if (!loop_) throw ConnectError("could not create the sound server main loop", false);
  context_ = pa_context_new(pa_threaded_mainloop_get_api(loop_), clientName);
  if (!context_) {
    pa_threaded_mainloop_free(loop_);
    throw ConnectError("could not create a sound server client", false);
  }
  pa_context_set_state_callback(context_, stateCallback, this);
  int error = 0;
  {
    pa_threaded_mainloop_lock(loop_);
    if (pa_context_connect(context_, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0 ||
        pa_threaded_mainloop_start(loop_) < 0) {
      error = pa_context_errno(context_);
    } else {
      error = awaitReady(timeout);
    }
    pa_threaded_mainloop_unlock(loop_);
  }
  if (error != 0) {
    pa_threaded_mainloop_stop(loop_);
    pa_context_set_state_callback(context_, nullptr, nullptr);
    pa_context_disconnect(context_);
    pa_context_unref(context_);
    pa_threaded_mainloop_free(loop_);
    throw ConnectError(
        error == PA_ERR_TIMEOUT ? "the sound server did not answer" : pa_strerror(error),
        error == PA_ERR_ACCESS);
  }
}

LoopDeadline::LoopDeadline(pa_threaded_mainloop* loop, pa_context* context,
                           std::chrono::milliseconds timeout)
    : loop_(loop) {
  timer_ = pa_context_rttime_new(
      context, pa_rtclock_now() + pa_usec_t(timeout.count()) * PA_USEC_PER_MSEC,
      [](pa_mainloop_api*, pa_time_event*, const struct timeval*, void* data) {
        auto* self = static_cast<LoopDeadline*>(data);
        self->expired_ = true;
        pa_threaded_mainloop_signal(self->loop_, 0);
      },
      this);
}

LoopDeadline::~LoopDeadline() {
  if (timer_ != nullptr) pa_threaded_mainloop_get_api(loop_)->time_free(timer_);
}

int Connection::awaitReady(std::chrono::milliseconds timeout) {
  const LoopDeadline deadline(loop_, context_, timeout);  // wakes the wait if the server is silent
  int error = 0;
  for (;;) {
    const pa_context_state_t state = pa_context_get_state(context_);
    if (state == PA_CONTEXT_READY) break;
    if (!PA_CONTEXT_IS_GOOD(state)) {
      error = pa_context_errno(context_);
      if (error == 0) error = PA_ERR_CONNECTIONREFUSED;
      break;
    }
    if (deadline.expired()) {
      error = PA_ERR_TIMEOUT;
      break;
    }
    pa_threaded_mainloop_wait(loop_);
  }
  return error;
}

Connection::~Connection() {
  {
    LoopLock held(loop_);
    pa_context_set_state_callback(context_, nullptr, nullptr);
    pa_context_set_subscribe_callback(context_, nullptr, nullptr);
    pa_context_disconnect(context_);
  }
  pa_threaded_mainloop_stop(loop_);
  pa_context_unref(context_);
  pa_threaded_mainloop_free(loop_);
}

void Connection::stateCallback(pa_context* context, void* data) {
  auto* self = static_cast<Connection*>(data);
  const pa_context_state_t state = pa_context_get_state(context);
  if ((state == PA_CONTEXT_FAILED || state == PA_CONTEXT_TERMINATED) && !self->broken_) {
    self->broken_ = true;
    if (self->handler_) self->handler_(-1, 0, 0);
  }
  pa_threaded_mainloop_signal(self->loop_, 0);
}

bool Connection::alive() {
  LoopLock held(loop_);
  return pa_context_get_state(context_) == PA_CONTEXT_READY;
}

void Connection::await(pa_operation* op) {
  if (!op) return;
  while (pa_operation_get_state(op) == PA_OPERATION_RUNNING &&
         pa_context_get_state(context_) == PA_CONTEXT_READY) {
    pa_threaded_mainloop_wait(loop_);
  }
  pa_operation_cancel(op);
  pa_operation_unref(op);
}

std::vector<SourceInfo> Connection::sources() {
  struct Query {
    Connection* self;
    std::vector<SourceInfo> found;
  } query{this, {}};
  LoopLock held(loop_);
  await(pa_context_get_source_info_list(
      context_,
      [](pa_context*, const pa_source_info* info, int eol, void* data) {
        auto* query = static_cast<Query*>(data);
        if (eol || !info) {
          pa_threaded_mainloop_signal(query->self->loop_, 0);
          return;
        }
        SourceInfo source;
        source.index = info->index;
        source.name = info->name ? info->name : "";
        source.description = info->description ? info->description : source.name;
        source.spec = info->sample_spec;
        source.monitor = info->monitor_of_sink != PA_INVALID_INDEX;
        source.formFactor = property(info->proplist, PA_PROP_DEVICE_FORM_FACTOR);
        source.masterDevice = property(info->proplist, "device.master_device");
        source.bus = property(info->proplist, PA_PROP_DEVICE_BUS);
        if (info->active_port && info->active_port->name)
          source.activePort = info->active_port->name;
        query->found.push_back(std::move(source));
      },
      &query));
  return query.found;
}

std::optional<ServerInfo> Connection::server() {
  struct Query {
    Connection* self;
    std::optional<ServerInfo> found;
  } query{this, {}};
  LoopLock held(loop_);
  await(pa_context_get_server_info(
      context_,
      [](pa_context*, const pa_server_info* info, void* data) {
        auto* query = static_cast<Query*>(data);
        if (info) {
          query->found = ServerInfo{info->default_source_name ? info->default_source_name : "",
                                    info->default_sink_name ? info->default_sink_name : ""};
        }
        pa_threaded_mainloop_signal(query->self->loop_, 0);
      },
      &query));
  return query.found;
}

std::optional<std::string> Connection::sinkMonitor(const std::string& name) {
  struct Query {
    Connection* self;
    std::optional<std::string> found;
  } query{this, {}};
  LoopLock held(loop_);
  await(pa_context_get_sink_info_by_name(
      context_, name.c_str(),
      [](pa_context*, const pa_sink_info* info, int eol, void* data) {
        auto* query = static_cast<Query*>(data);
        if (!eol && info && info->monitor_source_name && *info->monitor_source_name) {
          query->found = info->monitor_source_name;
        }
        if (eol) pa_threaded_mainloop_signal(query->self->loop_, 0);
      },
      &query));
  return query.found;
}

void Connection::subscribe(EventHandler handler) {
  LoopLock held(loop_);
  handler_ = std::move(handler);
  pa_context_set_subscribe_callback(context_, eventCallback, this);
  pa_operation* op = pa_context_subscribe(
      context_, pa_subscription_mask_t(PA_SUBSCRIPTION_MASK_SOURCE | PA_SUBSCRIPTION_MASK_SERVER),
      nullptr, nullptr);
  if (op) pa_operation_unref(op);
}

void Connection::unsubscribe() {
  LoopLock held(loop_);
  handler_ = nullptr;
}

void Connection::eventCallback(pa_context*, pa_subscription_event_type_t type, uint32_t index,
                               void* data) {
  auto* self = static_cast<Connection*>(data);
  if (self->handler_) {
    self->handler_(int(type & PA_SUBSCRIPTION_EVENT_FACILITY_MASK),
                   int(type & PA_SUBSCRIPTION_EVENT_TYPE_MASK), index);
  }
}

RecordStream::RecordStream(Connection& connection, const std::string& source,
                           const AudioFormat& format, std::chrono::milliseconds fragment,
                           Deliver deliver, Ended ended)
    : connection_(connection),
      format_(format),
      deliver_(std::move(deliver)),
      ended_(std::move(ended)) {
  const pa_sample_spec spec = sampleSpec(format);
  LoopLock held(connection_.loop());
  stream_ = pa_stream_new(connection_.context(), "Tallowbrook recording", &spec, nullptr);
  if (!stream_) throw std::runtime_error(pa_strerror(pa_context_errno(connection_.context())));
  pa_stream_set_state_callback(stream_, stateCallback, this);
  pa_stream_set_read_callback(stream_, readCallback, this);
  pa_buffer_attr attr;
  std::memset(&attr, 0xff, sizeof attr);
  attr.fragsize = uint32_t(pa_usec_to_bytes(pa_usec_t(fragment.count()) * 1000, &spec));
  const auto flags = pa_stream_flags_t(PA_STREAM_ADJUST_LATENCY | PA_STREAM_DONT_MOVE);
  int error = 0;
  if (pa_stream_connect_record(stream_, source.c_str(), &attr, flags) < 0) {
    error = pa_context_errno(connection_.context());
  } else {
    for (;;) {
      const pa_stream_state_t state = pa_stream_get_state(stream_);
      if (state == PA_STREAM_READY) break;
      if (!PA_STREAM_IS_GOOD(state)) {
        error = pa_context_errno(connection_.context());
        if (error == 0) error = PA_ERR_UNKNOWN;
        break;
      }
      pa_threaded_mainloop_wait(connection_.loop());
    }
  }
  if (error != 0) {
    pa_stream_set_state_callback(stream_, nullptr, nullptr);
    pa_stream_set_read_callback(stream_, nullptr, nullptr);
    pa_stream_disconnect(stream_);
    pa_stream_unref(stream_);
    stream_ = nullptr;
    throw std::runtime_error(pa_strerror(error));
  }
  connected_ = true;
  sourceIndex_ = pa_stream_get_device_index(stream_);
}

RecordStream::~RecordStream() {
  if (!stream_) return;
  LoopLock held(connection_.loop());
  pa_stream_set_state_callback(stream_, nullptr, nullptr);
  pa_stream_set_read_callback(stream_, nullptr, nullptr);
  if (pa_stream_get_state(stream_) == PA_STREAM_READY) pa_stream_disconnect(stream_);
  pa_stream_unref(stream_);
}

void RecordStream::stateCallback(pa_stream* stream, void* data) {
  auto* self = static_cast<RecordStream*>(data);
  const pa_stream_state_t state = pa_stream_get_state(stream);
  if (self->connected_ && !self->endedTold_ &&
      (state == PA_STREAM_FAILED || state == PA_STREAM_TERMINATED)) {
    self->endedTold_ = true;
    int error = pa_context_errno(pa_stream_get_context(stream));
    std::string why = state == PA_STREAM_FAILED && error != 0
                          ? std::string(pa_strerror(error))
                          : std::string("the sound server ended the stream");
    if (self->ended_) self->ended_(why);
  }
  pa_threaded_mainloop_signal(self->connection_.loop(), 0);
}

void RecordStream::readCallback(pa_stream* stream, size_t, void* data) {
  auto* self = static_cast<RecordStream*>(data);
  while (pa_stream_readable_size(stream) > 0) {
    const void* bytes = nullptr;
    size_t length = 0;
    if (pa_stream_peek(stream, &bytes, &length) < 0) return;
    if (length == 0) return;
    if (bytes && self->deliver_) {
      const PcmBuffer buffer{
          self->format_, std::span<const std::byte>(static_cast<const std::byte*>(bytes), length)};
      self->deliver_(buffer);
    }
    pa_stream_drop(stream);
  }
}

}  // namespace tallowbrook::Pulse
