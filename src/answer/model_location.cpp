#include "answer/model_location.h"

#include <unistd.h>

#include <cstdlib>

#include "cli/module.h"

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

std::optional<std::string> nodePath(GetEnv env) {
  std::string chosen = nonEmpty(env, "TALLOWBROOK_NODE");
  if (!chosen.empty()) return chosen;
  std::string path = nonEmpty(env, "PATH");
  for (const char* name : {"node", "nodejs"}) {
    size_t start = 0;
    while (start <= path.size()) {
      size_t end = path.find(':', start);
      if (end == std::string::npos) end = path.size();
      std::string dir = path.substr(start, end - start);
      if (dir.empty()) dir = ".";
      std::string candidate = dir + "/" + name;
      if (access(candidate.c_str(), X_OK) == 0) return candidate;
      start = end + 1;
    }
  }
  return std::nullopt;
}

std::string runnerDirectory(std::string_view executablePath) {
  // Beside the modules: the same folder that modulePath names.
  std::string module = modulePath(executablePath, "runner");
  return module.substr(0, module.rfind('/') + 1) + "model-runner";
}

}  // namespace tallowbrook::Answer
