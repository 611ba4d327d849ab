#include "answer/answer.h"

#include <dlfcn.h>

#include <algorithm>
#include <memory>

#include "answer/answer_request.h"
#include "answer/answer_stream.h"
#include "answer/generation.h"
#include "answer/generation_child.h"
#include "answer/model_availability.h"
#include "base/error.h"
#include "base/fail.h"
#include "base/module.h"
#include "base/standard_input.h"

namespace tallowbrook::Answer {
namespace {

[[noreturn]] void unavailable(const std::string& reason) {
  fail("the on-device model is unavailable: " + reason);
}

std::unique_ptr<Text::UserCharacters> loadUserCharacters() {
  auto create = moduleEntry<Text::CreateUserCharacters>("text", Text::kCreateUserCharactersSymbol);
  try {
    return std::unique_ptr<Text::UserCharacters>(create());
  } catch (const Error& error) {
    fail(error.what());
  }
}

// In the child: loads the llama module (and with it llama.cpp) and generates. A module that
// does not load means the library cannot run here.
void generateInChild(const std::string& llamaModule, const GenerationJob& job,
                     GenerationSink& sink) {
  void* module = nullptr;
  try {
    module = openModule(llamaModule);
  } catch (const Error& error) {
    sink.unavailable("deviceNotEligible", error.what());
    return;
  }
  auto generate = reinterpret_cast<Generate>(dlsym(module, kGenerateSymbol));
  if (generate == nullptr) {
    sink.unavailable("deviceNotEligible", "the llama module has no entry");
    return;
  }
  generate(job, sink);
}

}  // namespace

void run() {
  // No request comes near this; a longer input is not one.
  constexpr size_t kMaxRequestBytes = 64u << 20;
  std::optional<std::string> input = readStandardInput(kMaxRequestBytes);
  auto request = input ? decodeRequest(*input) : std::nullopt;
  if (!request) fail("could not parse the request on stdin");

  ModelSetup setup;
  ModelAvailability availability = checkModel(processEnv, executablePath(), &setup);
  if (!availability.available) unavailable(availability.reason);
  auto characters = loadUserCharacters();

  GenerationJob job{setup.model,     setup.libraryDir, setup.jinjaModule,
                    request->system, request->user,    std::max<int64_t>(request->maxTokens, 0)};
  auto started = GenerationChild::start(
      [&](GenerationSink& sink) { generateInChild(setup.llamaModule, job, sink); }, *characters);
  if (!started.child) {
    if (!started.refusal.empty()) fail(started.refusal);
    unavailable(started.unavailableReason);
  }
  streamAnswer(*started.child, *characters);
}

}  // namespace tallowbrook::Answer
