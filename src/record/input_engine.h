// InputEngine: the capture engine under the microphone source, behind an interface so tests
// drive the source with a fake. The sound server's implementation lives in the record module.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "audio/audio_format.h"

namespace tallowbrook {

// Receives each captured buffer, on the engine's capture thread.
using TapBlock = std::function<void(const PcmBuffer& buffer)>;

// One input device's capture: a device may be selected, a tap installed with a format, and the
// engine started and stopped; a change of the input devices is announced through the
// configuration-change handler. Every member may be called from any thread; the
// implementation guards its own state.
class InputEngine {
 public:
  virtual ~InputEngine() = default;

  // The id of the present input device with exactly this UID, or nothing.
  virtual std::optional<uint32_t> deviceId(const std::string& uid) = 0;

  // Records from device `id` from now on; 0 on success, a non-zero status when refused (the
  // engine then records from the default input).
  virtual int32_t select(uint32_t id) = 0;

  // The format the current input delivers; a sample rate of 0 when there is no input.
  virtual AudioFormat inputFormat() = 0;

  // Installs the tap that receives the buffers once started (replacing any earlier one).
  virtual void installTap(const AudioFormat& format, TapBlock block) = 0;

  // Removes the tap; no buffer is delivered to it after this returns.
  virtual void removeTap() = 0;

  // Starts capture into the tap. Throws std::runtime_error with a description on failure.
  virtual void start() = 0;

  // Stops capture.
  virtual void stop() = 0;

  // `handler` is called, on any thread, each time the input devices change in a way that
  // concerns this engine (its device went away, the default input changed, the server
  // connection broke). Set once, before `start`.
  virtual void setConfigurationChangeHandler(std::function<void()> handler) = 0;

  // Whether a closed lid cuts off the microphone the engine records from: true, false, or
  // nothing when that cannot be told.
  virtual std::optional<bool> lidBlocked() = 0;
};

}  // namespace tallowbrook
