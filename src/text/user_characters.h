// Counting user-perceived characters (grapheme clusters) of UTF-8 text. The real counter is
// ICU's character break iterator in the text module; unit tests may use it directly.
#pragma once

#include <cstddef>
#include <string_view>

namespace tallowbrook::Text {

class UserCharacters {
 public:
  virtual ~UserCharacters() = default;

  // The number of user-perceived characters in `text` (a base letter with its combining marks,
  // an emoji with its modifiers, CR LF: one each). Invalid UTF-8 counts one character per bad
  // byte. Thread-compatible: one thread at a time.
  virtual size_t count(std::string_view text) const = 0;

  // The byte length of the first `characters` user-perceived characters of `text`, or
  // text.size() when it has no more than that. Never ends inside a UTF-8 sequence.
  virtual size_t prefixBytes(std::string_view text, size_t characters) const = 0;
};

// The text module's entry: a new ICU-backed counter, owned by the caller; throws Error when ICU
// cannot start.
using CreateUserCharacters = UserCharacters* (*)();
inline constexpr const char* kCreateUserCharactersSymbol = "tallowbrook_text_user_characters";

}  // namespace tallowbrook::Text
