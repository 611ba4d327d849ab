// ICU's user-perceived characters for the answer tests: one counter for the whole test program.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "text/icu/icu_user_characters.h"

inline const tallowbrook::Text::UserCharacters& icuCharacters() {
  static std::unique_ptr<tallowbrook::Text::UserCharacters> icu =
      tallowbrook::Text::makeIcuUserCharacters();
  return *icu;
}
