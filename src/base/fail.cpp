#include "base/fail.h"

#include <cstdlib>

namespace tallowbrook {

Json failureDocument(std::string_view message) {
  return Json{{"type", "error"}, {"message", std::string(message)}};
}

void fail(std::string_view message) {
  writeJsonLine(failureDocument(message));
  std::_Exit(1);
}

}  // namespace tallowbrook
