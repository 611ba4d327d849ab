// User-perceived characters through ICU's character (grapheme cluster) break iterator.
#pragma once

#include <memory>
#include <string>

#include "answer/user_characters.h"

namespace tallowbrook::Answer {

// A counter for the root locale's extended grapheme clusters. Returns null with `*error` set
// (when given) if ICU cannot make a break iterator. Any thread; the counter it returns holds one
// break iterator, so one thread at a time uses it.
std::unique_ptr<UserCharacters> makeIcuUserCharacters(std::string* error);

}  // namespace tallowbrook::Answer
