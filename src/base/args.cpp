#include "base/args.h"

namespace tallowbrook {
namespace {
std::vector<std::string>& words() {
  static std::vector<std::string> list;
  return list;
}
std::vector<std::string>& everything() {
  static std::vector<std::string> list;
  return list;
}
}  // namespace

const std::vector<std::string>& args() {
  return words();
}

const std::vector<std::string>& commandLine() {
  return everything();
}

void setArgs(int argc, const char* const* argv) {
  everything().assign(argv, argv + argc);
  words().assign(argc > 0 ? argv + 1 : argv, argv + argc);
}

}  // namespace tallowbrook
