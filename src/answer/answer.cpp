#include "answer/answer.h"

#include <unistd.h>

#include <cerrno>
#include <memory>

#include "answer/answer_request.h"
#include "answer/answer_stream.h"
#include "answer/model_availability.h"
#include "answer/model_runner.h"
#include "cli/fail.h"
#include "cli/module.h"
#include "cli/standard_input.h"

namespace tallowbrook::Answer {
namespace {

[[noreturn]] void unavailable(const std::string& reason) {
  fail("the on-device model is unavailable: " + reason);
}

std::unique_ptr<UserCharacters> loadUserCharacters() {
  void* module = loadModule("answer");
  auto create = reinterpret_cast<CreateUserCharacters>(
      moduleSymbol(module, "answer", kCreateUserCharactersSymbol));
  std::string error;
  std::unique_ptr<UserCharacters> characters(create(&error));
  if (!characters) fail(error);
  return characters;
}

}  // namespace

void run() {
  std::string input = readStandardInput();
  auto request = decodeRequest(input);
  if (!request) fail("could not parse the request on stdin");

  ModelSetup setup;
  ModelAvailability availability = checkModel(processEnv, executablePath(), &setup);
  if (!availability.available) unavailable(availability.reason);
  auto characters = loadUserCharacters();

  ModelRunner::Started started = ModelRunner::start(setup, *request);
  if (!started.runner) unavailable(started.unavailableReason);
  streamAnswer(*started.runner, *characters);
}

}  // namespace tallowbrook::Answer
