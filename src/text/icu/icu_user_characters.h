// User-perceived characters through ICU's character (grapheme cluster) break iterator.
#pragma once

#include <memory>

#include "text/user_characters.h"

namespace tallowbrook::Text {

// A counter for the root locale's extended grapheme clusters. Throws Error if ICU cannot make a
// break iterator. Any thread; the counter it returns holds one break iterator, so one thread at
// a time uses it.
std::unique_ptr<UserCharacters> makeIcuUserCharacters();

}  // namespace tallowbrook::Text
