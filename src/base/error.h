// The one error type of the helper's own failures.
#pragma once

#include <stdexcept>
#include <string>

namespace tallowbrook {

// A failure reported in the helper's own words: `what()` is the message as the user reads it.
// Jobs and the platform interfaces behind them throw it (or a type derived from it, such as
// `RecordError`); only a job's command layer turns it into `fail(what())`, as it stands. Any
// other std::exception that reaches a command layer (std::system_error from the file system,
// std::bad_alloc) is the platform's own error, and the command puts its own prefix before it.
class Error : public std::runtime_error {
 public:
  explicit Error(const std::string& message) : std::runtime_error(message) {}
  explicit Error(const char* message) : std::runtime_error(message) {}
  // Out of line, so the type's identity lives in the executable and an Error thrown inside a
  // module is caught as one by the command that loaded it.
  ~Error() override;

  std::string message() const { return what(); }
};

}  // namespace tallowbrook
