#include "cli/gpu_presence.h"

#include <dirent.h>

#include <cctype>
#include <cstdlib>
#include <string_view>

namespace tallowbrook {
namespace {

// Whether `name` is `prefix` followed by one or more digits.
bool numbered(std::string_view name, std::string_view prefix) {
  if (!name.starts_with(prefix) || name.size() == prefix.size()) return false;
  for (char c : name.substr(prefix.size())) {
    if (!std::isdigit(static_cast<unsigned char>(c))) return false;
  }
  return true;
}

// Whether some entry of `folder` satisfies `wanted`.
template <typename Wanted>
bool anyEntry(const std::string& folder, Wanted wanted) {
  DIR* dir = opendir(folder.c_str());
  if (dir == nullptr) return false;
  bool found = false;
  while (dirent* entry = readdir(dir)) {
    if (wanted(std::string_view(entry->d_name))) {
      found = true;
      break;
    }
  }
  closedir(dir);
  return found;
}

}  // namespace

bool gpuDeviceNodesPresent(const std::string& sysClassDrm, const std::string& dev) {
  if (anyEntry(sysClassDrm, [](std::string_view name) { return numbered(name, "renderD"); })) {
    return true;
  }
  return anyEntry(dev,
                  [](std::string_view name) { return numbered(name, "nvidia") || name == "dxg"; });
}

bool vulkanDriversNamed() {
  for (const char* name : {"VK_ICD_FILENAMES", "VK_DRIVER_FILES", "VK_ADD_DRIVER_FILES"}) {
    const char* value = std::getenv(name);
    if (value != nullptr && *value != '\0') return true;
  }
  return false;
}

}  // namespace tallowbrook
