// Whether the on-device language model can answer, and if not, why. A cheap check that loads
// nothing: Node and the model runner are present, and the model file starts like a GGUF file.
// Whether the model really loads is known only when `answer` starts the runner.
#pragma once

#include <string>
#include <string_view>

#include "answer/model_location.h"

namespace tallowbrook {

struct ModelAvailability {
  bool available = false;
  // Empty when available; otherwise the reason's textual form ("deviceNotEligible",
  // "modelNotReady"), the same text `answer` puts in its unavailability message.
  std::string reason;
};

// What `answer` needs to start the runner, as the check found it.
struct ModelSetup {
  std::string node;       // the Node executable
  std::string runnerDir;  // the runner's folder (runner.mjs and its node_modules)
  std::string model;      // the model file
};

// "deviceNotEligible" when Node is not found or not executable, or the runner folder lacks
// runner.mjs or its installed node-llama-cpp; otherwise "modelNotReady" when the model file
// (Answer::modelPath) cannot be read or does not start with the GGUF magic; otherwise
// available. Fills `*setup` (when given) with the paths found. Never fails; any thread.
ModelAvailability checkModel(Answer::GetEnv env, std::string_view executablePath,
                             ModelSetup* setup);

// checkModel for this process: its environment and /proc/self/exe. Never fails. Main thread
// only (reads the environment).
ModelAvailability localModelAvailability();

}  // namespace tallowbrook
