// User-perceived characters through ICU's character (grapheme cluster) break iterator.
#pragma once

#include <memory>
#include <string>

#include "answer/user_characters.h"

namespace tallowbrook::Answer {

// A counter for the root locale's extended grapheme clusters. Returns null with `*error` set
// when ICU cannot make a break iterator.
std::unique_ptr<UserCharacters> makeIcuUserCharacters(std::string* error);

}  // namespace tallowbrook::Answer
