#include "answer/model_availability.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/module.h"

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

// Whether `dir` holds a CPU backend: one libggml-cpu-<family>.so per processor family.
bool hasCpuBackend(const std::string& dir) {
  DIR* folder = opendir(dir.c_str());
  if (folder == nullptr) return false;
  bool found = false;
  while (dirent* entry = readdir(folder)) {
    std::string_view name = entry->d_name;
    if (name.starts_with("libggml-cpu-") && name.ends_with(".so") &&
        readable(dir + "/" + entry->d_name)) {
      found = true;
      break;
    }
  }
  closedir(folder);
  return found;
}

}  // namespace

ModelAvailability checkModel(Answer::GetEnv env, std::string_view executablePath,
                             ModelSetup* setup) {
  ModelSetup found;
  found.llamaModule = modulePath(executablePath, "llama");
  found.jinjaModule = modulePath(executablePath, "llama-jinja");
  found.libraryDir = Answer::llamaLibraryDirectory(executablePath);
  found.model = Answer::modelPath(env, isFile);
  if (setup) *setup = found;

  bool runtime = readable(found.llamaModule) &&
                 readable(found.libraryDir + "/libllama.v0.4.0.so") &&
                 hasCpuBackend(found.libraryDir);
  if (!runtime) return ModelAvailability{false, "deviceNotEligible"};
  if (!startsWithGgufMagic(found.model)) return ModelAvailability{false, "modelNotReady"};
  return ModelAvailability{true, ""};
}

ModelAvailability localModelAvailability() {
  return checkModel(Answer::processEnv, executablePath(), nullptr);
}

}  // namespace tallowbrook
