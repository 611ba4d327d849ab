// SystemCapture: the capture service under the system-audio source, behind an interface so
// tests drive the source with a fake. The sound server's implementation records the monitor of
// the default output.
#pragma once

#include <functional>
#include <string>

#include "record/input_engine.h"

namespace tallowbrook {

class SystemCapture {
 public:
  virtual ~SystemCapture() = default;

  // Whether system audio may be captured at all (the default output has a monitor). Never
  // prompts. Any thread.
  virtual bool preflight() = 0;

  // Starts capture: buffers go to `deliver`, one at a time on one thread; when the service
  // ends the capture on its own, `stopped` is told why (on any thread). Throws RecordError or
  // std::runtime_error when capture cannot start. Called once.
  virtual void start(TapBlock deliver, std::function<void(const std::string& why)> stopped) = 0;

  // Ends capture; nothing is delivered after it returns. Never fails; harmless before start.
  virtual void stop() = 0;
};

}  // namespace tallowbrook
