// The answer as it grows, cut where no later piece can change it: an answer arrives from the model
// in byte pieces that may end inside a UTF-8 sequence, or just before a combining mark or an
// emoji modifier that joins the last character. Snapshots taken here end before the last
// user-perceived character, so the delta rule never sends a broken character and never drops a
// mark that arrives on its own piece.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "text/user_characters.h"

namespace tallowbrook::Answer {

// One thread at a time.
class StableText {
 public:
  explicit StableText(const Text::UserCharacters& characters) : characters_(characters) {}

  // Adds the next piece of the answer. Returns the new snapshot when the settled text grew: the
  // whole answer so far as well-formed UTF-8 (ill-formed bytes become U+FFFD), without a
  // sequence that may still be completed and without its last user-perceived character.
  std::optional<std::string> append(std::string_view piece);

  // The whole answer once nothing more comes: every complete character, the last one included.
  // A sequence left incomplete at the end is not a character and is left out. Returns nothing
  // when that adds nothing to the last snapshot.
  std::optional<std::string> finish();

 private:
  const Text::UserCharacters& characters_;
  std::string bytes_;        // every byte received
  size_t settledBytes_ = 0;  // the length of the last snapshot returned
};

}  // namespace tallowbrook::Answer
