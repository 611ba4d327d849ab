// The record module's one entry: the sound server's recording platform (libpulse, libsoxr).
#include "record/pulse/pulse_capture.h"
#include "record/record_platform.h"

extern "C" __attribute__((visibility("default"))) tallowbrook::RecordPlatform*
tallowbrook_create_record_platform() {
  return new tallowbrook::Pulse::PulsePlatform();
}
