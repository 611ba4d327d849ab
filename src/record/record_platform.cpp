#include "record/record_platform.h"

namespace tallowbrook {

const char* microphoneAuthorizationText(MicrophoneAuthorization status) {
  switch (status) {
    case MicrophoneAuthorization::notDetermined:
      return "not-determined";
    case MicrophoneAuthorization::restricted:
      return "restricted";
    case MicrophoneAuthorization::denied:
    case MicrophoneAuthorization::noSoundServer:
      return "denied";
    case MicrophoneAuthorization::authorized:
      return "authorized";
  }
  return "unknown";
}

}  // namespace tallowbrook
