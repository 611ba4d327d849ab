// The error of every recording failure that the recorder reports in its own words.
#pragma once

#include <string>

namespace tallowbrook {

// Thrown by value. The record command prints `message` as it stands; any other error that
// reaches it (a file system or sound server error) is prefixed "could not start recording: ".
struct RecordError {
  std::string message;
};

}  // namespace tallowbrook
