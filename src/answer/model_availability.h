// Whether the on-device language model can answer, and if not, why. A cheap check that loads
// nothing: the llama module and llama.cpp's libraries are installed, and the model file starts
// like a GGUF file. Whether the model really loads is known only when `answer` loads it.
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

// What `answer` needs to generate, as the check found it.
struct ModelSetup {
  std::string llamaModule;  // the module that runs llama.cpp (tallowbrook-llama.so)
  std::string jinjaModule;  // the module that renders Jinja chat templates
  std::string libraryDir;   // llama.cpp's libraries
  std::string model;        // the model file
};

// "deviceNotEligible" when the llama module is missing, or the library folder lacks libllama or
// any CPU backend (libggml-cpu-*.so); otherwise "modelNotReady" when the model file
// (Answer::modelPath) cannot be read or does not start with the GGUF magic; otherwise available.
// Fills `*setup` (when given) with the paths found. Never fails; any thread that may call `env`.
ModelAvailability checkModel(Answer::GetEnv env, std::string_view executablePath,
                             ModelSetup* setup);

// checkModel for this process: its environment and /proc/self/exe. Never fails. Main thread
// only (reads the environment).
ModelAvailability localModelAvailability();

}  // namespace tallowbrook
