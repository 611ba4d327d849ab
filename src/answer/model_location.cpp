#include "answer/model_location.h"

#include <cstdlib>

#include "base/module.h"

namespace tallowbrook::Answer {
namespace {

std::string nonEmpty(GetEnv env, const char* name) {
  auto value = env(name);
  return value ? *value : std::string();
}

}  // namespace

std::optional<std::string> processEnv(const char* name) {
  const char* value = std::getenv(name);
  if (!value) return std::nullopt;
  return std::string(value);
}

std::string modelPath(GetEnv env, bool (*exists)(const std::string& path)) {
  std::string chosen = nonEmpty(env, "TALLOWBROOK_MODEL");
  if (!chosen.empty()) return chosen;
  std::string dataHome = nonEmpty(env, "XDG_DATA_HOME");
  if (dataHome.empty() || dataHome.front() != '/') {
    std::string home = nonEmpty(env, "HOME");
    dataHome = home.empty() ? std::string() : home + "/.local/share";
  }
  if (!dataHome.empty()) {
    std::string user = dataHome + "/tallowbrook/model.gguf";
    if (exists(user)) return user;
  }
  return "/usr/share/tallowbrook/model.gguf";
}

std::string llamaLibraryDirectory(std::string_view executablePath) {
  // Beside the modules: the same folder that modulePath names.
  std::string module = modulePath(executablePath, "llama");
  return module.substr(0, module.rfind('/') + 1) + "llama";
}

}  // namespace tallowbrook::Answer
