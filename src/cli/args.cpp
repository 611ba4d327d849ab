#include "cli/args.h"

namespace tallowbrook {
namespace {
std::vector<std::string>& storage() {
  static std::vector<std::string> words;
  return words;
}
}  // namespace

const std::vector<std::string>& args() {
  return storage();
}

void setArgs(int argc, const char* const* argv) {
  auto& words = storage();
  words.clear();
  for (int i = 1; i < argc; ++i) words.emplace_back(argv[i]);
}

}  // namespace tallowbrook
