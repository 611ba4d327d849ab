#include "record/pulse/pulse_capture.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "audio/soxr_converter.h"
#include "record/record_error.h"
#include "record/system_audio_source.h"

namespace tallowbrook::Pulse {
namespace {

constexpr const char* kClientName = "Tallowbrook";

bool isInternal(const SourceInfo& source) {
  if (source.formFactor == "internal") return true;
  std::string port = source.activePort;
  std::transform(port.begin(), port.end(), port.begin(),
                 [](unsigned char c) { return char(std::tolower(c)); });
  return port.find("internal-mic") != std::string::npos ||
         port.find("internal mic") != std::string::npos;
}

}  // namespace

InputCatalogue inputCatalogue(Connection& connection) {
  InputCatalogue catalogue;
  for (SourceInfo& source : connection.sources()) {
    if (!source.monitor) catalogue.inputs.push_back(std::move(source));
  }
  if (const std::optional<ServerInfo> server = connection.server()) {
    for (const SourceInfo& source : catalogue.inputs) {
      if (source.name == server->defaultSource) catalogue.defaultInput = source.name;
    }
  }
  return catalogue;
}

std::optional<uint32_t> inputIdForUID(const std::vector<SourceInfo>& sources,
                                      const std::string& uid) {
  for (const SourceInfo& source : sources) {
    if (!source.monitor && source.name == uid) return source.index;
  }
  return std::nullopt;
}

std::optional<MicrophoneDevice> deviceEvidenceFor(const std::vector<SourceInfo>& sources,
                                                  uint32_t index) {
  const auto found = std::find_if(sources.begin(), sources.end(),
                                  [index](const SourceInfo& s) { return s.index == index; });
  if (found == sources.end()) {
    LidProbeDiagnostic::report("transport", -1, 0);
    return std::nullopt;
  }
  MicrophoneDevice device;
  if (!found->masterDevice.empty()) {
    device.transportType = kTransportAggregate;
  } else if (isInternal(*found)) {
    device.transportType = kTransportBuiltIn;
  } else if (found->bus == "usb") {
    device.transportType = fourCharCode("usb ");
  } else if (found->bus == "bluetooth") {
    device.transportType = fourCharCode("blue");
  } else {
    device.transportType = fourCharCode("virt");
  }
  LidProbeDiagnostic::report("transport", 0, device.transportType);
  device.hasInputStreams = !found->monitor;
  LidProbeDiagnostic::report("input-stream-bytes", 0, found->monitor ? 0 : 8);
  if (device.transportType == kTransportAggregate) {
    std::vector<uint32_t> members;
    for (const SourceInfo& source : sources) {
      if (source.name == found->masterDevice) members.push_back(source.index);
    }
    if (members.empty()) return std::nullopt;  // the master is gone: cannot tell
    LidProbeDiagnostic::report("active-subdevices", 0, uint32_t(members.size()));
    device.activeSubdevices = std::move(members);
  }
  return device;
}

PulseInputEngine::PulseInputEngine(std::shared_ptr<Connection> shared, DeliveryPeriod period)
    : period_(period) {
  std::lock_guard<std::mutex> held(lock_);
  if (shared && shared->alive()) {
    connection_ = std::move(shared);
    subscribe();
  } else {
    connection();  // no server now: inputFormat() says there is no input
  }
}

PulseInputEngine::~PulseInputEngine() {
  std::lock_guard<std::mutex> held(lock_);
  stream_.reset();
  if (connection_) connection_->unsubscribe();
  connection_.reset();
}

Connection* PulseInputEngine::connection() {
  if (connection_ && connection_->alive()) return connection_.get();
  stream_.reset();
  if (connection_) connection_->unsubscribe();
  connection_.reset();
  try {
    connection_ = std::make_shared<Connection>(kClientName);
  } catch (const ConnectError&) {
    return nullptr;
  }
  subscribe();
  return connection_.get();
}

void PulseInputEngine::subscribe() {
  connection_->subscribe([this, from = connection_.get()](int facility, int type, uint32_t index) {
    onEvent(*from, facility, type, index);
  });
}

std::optional<uint32_t> PulseInputEngine::deviceId(const std::string& uid) {
  std::lock_guard<std::mutex> held(lock_);
  Connection* connection = this->connection();
  if (!connection) return std::nullopt;
  return inputIdForUID(connection->sources(), uid);
}

int32_t PulseInputEngine::select(uint32_t id) {
  std::lock_guard<std::mutex> held(lock_);
  Connection* connection = this->connection();
  if (!connection) return -PA_ERR_CONNECTIONREFUSED;
  for (const SourceInfo& source : connection->sources()) {
    if (!source.monitor && source.index == id) {
      selected_ = source.name;
      return 0;
    }
  }
  return -PA_ERR_NOENTITY;
}

std::optional<SourceInfo> PulseInputEngine::currentSource(Connection& connection, bool* anyInput) {
  const InputCatalogue catalogue = inputCatalogue(connection);
  if (anyInput != nullptr) *anyInput = !catalogue.inputs.empty();
  const std::optional<std::string> wanted = selected_ ? selected_ : catalogue.defaultInput;
  for (const std::optional<std::string>& name : {wanted, catalogue.defaultInput}) {
    if (!name) continue;
    for (const SourceInfo& source : catalogue.inputs) {
      if (source.name == *name) return source;
    }
  }
  return std::nullopt;
}

AudioFormat PulseInputEngine::inputFormat() {
  std::lock_guard<std::mutex> held(lock_);
  Connection* connection = this->connection();
  if (!connection) return {};
  bool anyInput = false;
  std::optional<SourceInfo> source = currentSource(*connection, &anyInput);
  if (!source && anyInput && !stream_) {
    // pipewire-pulse may go on telling a connection the default source it fell back on when
    // the input went away (a monitor) after an input came back and was made the default,
    // while a new connection is told the new default: ask on a new connection.
    connection_->unsubscribe();
    connection_.reset();
    connection = this->connection();
    if (!connection) return {};
    source = currentSource(*connection);
  }
  if (!source) return {};
  return recordFormat(source->spec);
}

void PulseInputEngine::installTap(const AudioFormat& format, TapBlock block) {
  {
    std::lock_guard<std::mutex> held(lock_);
    tapFormat_ = format;
  }
  std::lock_guard<std::mutex> held(tapLock_);
  tap_ = std::make_shared<TapBlock>(std::move(block));
}

void PulseInputEngine::removeTap() {
  std::lock_guard<std::mutex> held(tapLock_);
  tap_.reset();
}

void PulseInputEngine::start() {
  std::lock_guard<std::mutex> held(lock_);
  stream_.reset();
  Connection* connection = this->connection();
  if (!connection) throw std::runtime_error("the sound server cannot be reached");
  const std::optional<SourceInfo> source = currentSource(*connection);
  if (!source) throw std::runtime_error("no input device is present");
  {
    std::lock_guard<std::mutex> names(namesLock_);
    recordingName_ = source->name;
  }
  followsDefault_ = !selected_ || *selected_ != source->name;
  changeTold_ = false;
  stream_ = std::make_unique<RecordStream>(
      *connection, source->name, tapFormat_, period_,
      [this](const PcmBuffer& buffer) {
        std::shared_ptr<TapBlock> tap;
        {
          std::lock_guard<std::mutex> held(tapLock_);
          tap = tap_;
        }
        if (tap) (*tap)(buffer);
      },
      [this](const std::string&) { notifyChange(); });
  recordingIndex_ = source->index;
}

void PulseInputEngine::stop() {
  std::lock_guard<std::mutex> held(lock_);
  recordingIndex_ = PA_INVALID_INDEX;
  stream_.reset();
}

void PulseInputEngine::setConfigurationChangeHandler(std::function<void()> handler) {
  changeHandler_ = std::move(handler);
}

void PulseInputEngine::notifyChange() {
  if (changeTold_.exchange(true)) return;  // once per started stream
  if (changeHandler_) changeHandler_();
}

void PulseInputEngine::onEvent(Connection& from, int facility, int type, uint32_t index) {
  if (recordingIndex_ == PA_INVALID_INDEX) return;  // not recording: the retries look again
  if (facility == -1) {
    notifyChange();
    return;
  }
  if (facility == PA_SUBSCRIPTION_EVENT_SOURCE && type == PA_SUBSCRIPTION_EVENT_REMOVE &&
      index == recordingIndex_) {
    notifyChange();
    return;
  }
  if (facility == PA_SUBSCRIPTION_EVENT_SERVER && followsDefault_) {
    // Runs on the main loop thread: ask without waiting.
    pa_operation* op = pa_context_get_server_info(
        from.context(),
        [](pa_context*, const pa_server_info* info, void* data) {
          auto* self = static_cast<PulseInputEngine*>(data);
          if (!info || !info->default_source_name) return;
          bool changed;
          {
            std::lock_guard<std::mutex> names(self->namesLock_);
            changed = self->recordingName_ != info->default_source_name;
          }
          if (changed && self->recordingIndex_ != PA_INVALID_INDEX) self->notifyChange();
        },
        this);
    if (op) pa_operation_unref(op);
  }
}

std::optional<bool> PulseInputEngine::lidBlocked() {
  std::optional<uint32_t> current;
  if (recordingIndex_ != PA_INVALID_INDEX) current = recordingIndex_.load();
  std::vector<SourceInfo> sources;
  if (current) {
    std::lock_guard<std::mutex> held(lock_);
    if (Connection* connection = this->connection()) sources = connection->sources();
  }
  return microphoneBlocked(
      current, [&sources](uint32_t id) { return deviceEvidenceFor(sources, id); },
      [] { return lidClosedFromAcpi(); });
}

PulseSystemCapture::~PulseSystemCapture() {
  std::lock_guard<std::mutex> held(lock_);
  stream_.reset();
  connection_.reset();
}

bool PulseSystemCapture::preflight() {
  std::lock_guard<std::mutex> held(lock_);
  if (!connection_) {
    try {
      connection_ = std::make_shared<Connection>(kClientName);
    } catch (const ConnectError&) {
      throw RecordError{kNoSoundServerText};
    }
  }
  const std::optional<ServerInfo> server = connection_->server();
  return server && !server->defaultSink.empty() &&
         connection_->sinkMonitor(server->defaultSink).has_value();
}

void PulseSystemCapture::start(TapBlock deliver,
                               std::function<void(const std::string& why)> stopped) {
  std::lock_guard<std::mutex> held(lock_);
  if (!connection_) throw std::runtime_error("the sound server cannot be reached");
  const std::optional<ServerInfo> server = connection_->server();
  if (!server) throw std::runtime_error("the sound server did not answer");
  const std::optional<std::string> monitor = connection_->sinkMonitor(server->defaultSink);
  if (!monitor) throw RecordError{kScreenRecordingOffText};
  std::optional<SourceInfo> found;
  for (SourceInfo& source : connection_->sources()) {
    if (source.name == *monitor) found = std::move(source);
  }
  if (!found) throw std::runtime_error("the monitor of the default output is gone");
  stream_ = std::make_unique<RecordStream>(*connection_, *monitor, recordFormat(found->spec),
                                           period_, std::move(deliver), std::move(stopped));
}

void PulseSystemCapture::stop() {
  std::lock_guard<std::mutex> held(lock_);
  stream_.reset();
}

std::vector<InputDevice> PulsePlatform::inputDevices() {
  std::vector<InputDevice> devices;
  try {
    Connection connection(kClientName);
    const InputCatalogue catalogue = inputCatalogue(connection);
    for (const SourceInfo& source : catalogue.inputs) {
      devices.push_back(
          InputDevice{source.name, source.description, catalogue.defaultInput == source.name});
    }
  } catch (const ConnectError& error) {
    if (error.accessDenied) {
      throw RecordError{
          "The sound server refused this program, so no input device can be listed. Allow it "
          "to record in the sound server's settings, then try again."};
    }
    throw RecordError{
        "No sound server is running, so no input device can be listed. Start PulseAudio or "
        "PipeWire (with pipewire-pulse), then try again."};
  }
  return devices;
}

ConverterFactory PulsePlatform::converterFactory() {
  return makeSoxrConverter;
}

MicrophoneAuthorization PulsePlatform::microphoneAuthorization() {
  try {
    auto connection = std::make_shared<Connection>(kClientName);
    std::lock_guard<std::mutex> held(lock_);
    shared_ = std::move(connection);
    return MicrophoneAuthorization::authorized;
  } catch (const ConnectError& error) {
    return error.accessDenied ? MicrophoneAuthorization::denied
                              : MicrophoneAuthorization::noSoundServer;
  }
}

std::shared_ptr<Connection> PulsePlatform::shared() {
  std::lock_guard<std::mutex> held(lock_);
  if (!shared_ || !shared_->alive()) {
    try {
      shared_ = std::make_shared<Connection>(kClientName);
    } catch (const ConnectError&) {
      shared_.reset();
    }
  }
  return shared_;
}

std::unique_ptr<InputEngine> PulsePlatform::makeInputEngine(DeliveryPeriod period) {
  return std::make_unique<PulseInputEngine>(shared(), period);
}

std::unique_ptr<SystemCapture> PulsePlatform::makeSystemCapture(DeliveryPeriod period) {
  return std::make_unique<PulseSystemCapture>(shared(), period);
}

}  // namespace tallowbrook::Pulse
