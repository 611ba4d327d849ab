#include "answer/model_availability.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "cli/module.h"

namespace tallowbrook {
namespace {

bool isFile(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

bool readable(const std::string& path) {
  return isFile(path) && access(path.c_str(), R_OK) == 0;
}

bool startsWithGgufMagic(const std::string& path) {
  if (!isFile(path)) return false;
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  char magic[4] = {};
  ssize_t n = pread(fd, magic, sizeof magic, 0);
  close(fd);
  return n == 4 && magic[0] == 'G' && magic[1] == 'G' && magic[2] == 'U' && magic[3] == 'F';
}

}  // namespace

ModelAvailability checkModel(Answer::GetEnv env, std::string_view executablePath,
                             ModelSetup* setup) {
  ModelSetup found;
  auto node = Answer::nodePath(env);
  found.node = node.value_or("");
  found.runnerDir = Answer::runnerDirectory(executablePath);
  found.model = Answer::modelPath(env, isFile);
  if (setup) *setup = found;

  bool runtime = node && isFile(*node) && access(node->c_str(), X_OK) == 0 &&
                 readable(found.runnerDir + "/" + Answer::kRunnerProgram) &&
                 readable(found.runnerDir + "/node_modules/node-llama-cpp/package.json");
  if (!runtime) return ModelAvailability{false, "deviceNotEligible"};
  if (!startsWithGgufMagic(found.model)) return ModelAvailability{false, "modelNotReady"};
  return ModelAvailability{true, ""};
}

ModelAvailability localModelAvailability() {
  return checkModel(Answer::processEnv, executablePath(), nullptr);
}

}  // namespace tallowbrook
