#include "base/module.h"

#include <dlfcn.h>
#include <unistd.h>

#include <climits>

#include "base/error.h"
#include "base/fail.h"

namespace tallowbrook {

std::string modulePath(std::string_view executablePath, std::string_view name) {
  auto parent = [](std::string_view path) {
    auto slash = path.find_last_of('/');
    return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
  };
  std::string_view prefix = parent(parent(executablePath));  // the directory above bin/
  std::string path;
  if (!prefix.empty()) {
    path.append(prefix);
  } else if (executablePath.empty() || executablePath.front() != '/') {
    path.append(".");
  }
  path.append("/lib/tallowbrook-helper/tallowbrook-");
  path.append(name);
  path.append(".so");
  return path;
}

std::string executablePath() {
  char buffer[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer);
  if (n <= 0 || static_cast<size_t>(n) >= sizeof buffer) return {};
  return std::string(buffer, static_cast<size_t>(n));
}

void* openModule(const std::string& path) {
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    const char* reason = dlerror();
    throw Error(reason != nullptr ? reason : "unknown loader error");
  }
  return handle;
}

void* loadModule(std::string_view name) {
  try {
    return openModule(modulePath(executablePath(), name));
  } catch (const Error& error) {
    fail("could not load the " + std::string(name) + " module: " + error.what());
  }
}

void* moduleSymbol(void* module, std::string_view name, const char* symbol) {
  dlerror();
  void* address = dlsym(module, symbol);
  if (address == nullptr) {
    fail("the " + std::string(name) + " module has no " + symbol +
         "; reinstall tallowbrook-helper");
  }
  return address;
}

}  // namespace tallowbrook
