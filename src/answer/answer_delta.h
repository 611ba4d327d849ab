// The delta rule: from a stream of snapshots (the whole answer so far) to the pieces of text
// that `answer` prints.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "text/user_characters.h"

namespace tallowbrook::Answer {

// Remembers the last snapshot that produced a delta. Cutting is by character count alone: a
// snapshot that is not longer (in user-perceived characters) than the remembered one produces
// nothing, and a longer one produces everything after as many characters as the remembered one
// had, whether or not it still begins with it. So a revision of earlier text is never sent
// again. One thread at a time.
class DeltaCutter {
 public:
  explicit DeltaCutter(const Text::UserCharacters& characters) : characters_(characters) {}

  // The text to print for `content`, or nothing. When there is a delta, `content` becomes the
  // remembered snapshot.
  std::optional<std::string> next(std::string_view content);

 private:
  const Text::UserCharacters& characters_;
  std::string previous_;
  size_t previousCount_ = 0;
};

}  // namespace tallowbrook::Answer
