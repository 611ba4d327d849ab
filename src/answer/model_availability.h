// Whether the on-device language model can answer, and if not, why.
#pragma once

#include <string>

namespace tallowbrook {

struct ModelAvailability {
  bool available = false;
  // Empty when available; otherwise the reason's textual form ("deviceNotEligible",
  // "modelNotReady", ...), the same text `answer` puts in its unavailability message.
  std::string reason;
};

// Checks the local model runtime. Never fails. Main thread only.
ModelAvailability localModelAvailability();

}  // namespace tallowbrook
