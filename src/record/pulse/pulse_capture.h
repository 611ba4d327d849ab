// The sound server's side of recording: the microphone engine, the system-audio capture, the
// device catalogue and the permission answer, all over libpulse.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "audio/pulse/pulse_connection.h"
#include "record/microphone_route.h"
#include "record/record_platform.h"

namespace tallowbrook::Pulse {

// The input sources (monitors left out) in the server's order, and the default one's name
// when the default source is an input. Throws ConnectError when no server can be reached.
struct InputCatalogue {
  std::vector<SourceInfo> inputs;
  std::optional<std::string> defaultInput;
};
InputCatalogue inputCatalogue(Connection& connection);

// The index of the first input (not a monitor) in `sources` whose name is exactly `uid`, or
// nothing. Pure.
std::optional<uint32_t> inputIdForUID(const std::vector<SourceInfo>& sources,
                                      const std::string& uid);

// What the lid detection knows about source `index`: a monitor has no input streams; a source
// with form factor "internal" or an internal-microphone port is built in; a remap or loopback
// source is an aggregate of its master. Reports the "transport", "input-stream-bytes" and
// "active-subdevices" stages. Pure over `sources`.
std::optional<MicrophoneDevice> deviceEvidenceFor(const std::vector<SourceInfo>& sources,
                                                  uint32_t index);

// The microphone engine: records the selected source while it is present, otherwise the
// default input; reconnects to the server when the connection broke. `lock_` guards the
// connection, the stream and the tap format; the main loop's event handler reads only the
// atomics and `names_` (guarded by `namesLock_`), so it never waits for `lock_`.
class PulseInputEngine final : public InputEngine {
 public:
  // Uses `shared` (a connection other parts of the recording use too) while it stands, or
  // connects on its own.
  // Records through `shared` while it lives (else a connection of its own), in fragments of
  // `period`.
  PulseInputEngine(std::shared_ptr<Connection> shared, DeliveryPeriod period);
  ~PulseInputEngine() override;

  std::optional<uint32_t> deviceId(const std::string& uid) override;
  int32_t select(uint32_t id) override;
  AudioFormat inputFormat() override;
  void installTap(const AudioFormat& format, TapBlock block) override;
  void removeTap() override;
  void start() override;
  void stop() override;
  void setConfigurationChangeHandler(std::function<void()> handler) override;
  std::optional<bool> lidBlocked() override;

 private:
  // The live connection, reconnecting when needed; null when no server answers. lock_ held.
  Connection* connection();
  // The source to record now, if any. lock_ held.
  // `*anyInput` (when given) says whether the server has any input at all.
  std::optional<SourceInfo> currentSource(Connection& connection, bool* anyInput = nullptr);
  // Subscribes this engine to the events of connection_. lock_ held.
  void subscribe();
  void notifyChange();
  void onEvent(Connection& from, int facility, int type, uint32_t index);

  const DeliveryPeriod period_;
  std::mutex lock_;
  std::shared_ptr<Connection> connection_;  // guarded by lock_
  std::unique_ptr<RecordStream> stream_;    // guarded by lock_
  std::optional<std::string> selected_;     // guarded by lock_
  AudioFormat tapFormat_;                   // guarded by lock_

  std::mutex tapLock_;
  std::shared_ptr<TapBlock> tap_;  // guarded by tapLock_

  std::mutex namesLock_;
  std::string recordingName_;            // guarded by namesLock_
  std::function<void()> changeHandler_;  // set once before start
  std::atomic<uint32_t> recordingIndex_{PA_INVALID_INDEX};
  std::atomic<bool> followsDefault_{false};
  std::atomic<bool> changeTold_{false};
};

// System audio: a record stream on the monitor of the default output.
class PulseSystemCapture final : public SystemCapture {
 public:
  // Uses `shared` when given, or connects on its own at `preflight`.
  PulseSystemCapture(std::shared_ptr<Connection> shared, DeliveryPeriod period)
      : connection_(std::move(shared)), period_(period) {}
  ~PulseSystemCapture() override;
  // Whether the default output has a monitor; throws RecordError when no server answers.
  bool preflight() override;
  void start(TapBlock deliver, std::function<void(const std::string& why)> stopped) override;
  void stop() override;

 private:
  std::mutex lock_;
  std::shared_ptr<Connection> connection_;  // guarded by lock_
  const DeliveryPeriod period_;
  std::unique_ptr<RecordStream> stream_;  // guarded by lock_
};

// The platform of a real recording. The connection that answered the permission question is
// kept and shared by the microphone and the system-audio capture (one main loop thread for
// both streams). `lock_` guards `shared_`.
class PulsePlatform final : public RecordPlatform {
 public:
  // The sources that are inputs (monitors left out), on a connection of their own.
  std::vector<InputDevice> inputDevices() override;
  // libsoxr.
  ConverterFactory converterFactory() override;
  MicrophoneAuthorization microphoneAuthorization() override;
  std::unique_ptr<InputEngine> makeInputEngine(DeliveryPeriod period) override;
  std::unique_ptr<SystemCapture> makeSystemCapture(DeliveryPeriod period) override;

 private:
  // The shared connection, connecting when there is none yet; null when no server answers.
  std::shared_ptr<Connection> shared();

  std::mutex lock_;
  std::shared_ptr<Connection> shared_;  // guarded by lock_
};

}  // namespace tallowbrook::Pulse
