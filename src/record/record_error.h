// The error of every recording failure that the recorder reports in its own words.
#pragma once

#include "base/error.h"

namespace tallowbrook {

// Thrown by value. The record command prints its message as it stands; any other error that
// reaches it (a file system or sound server error) is prefixed "could not start recording: ".
class RecordError : public Error {
 public:
  using Error::Error;
};

}  // namespace tallowbrook
