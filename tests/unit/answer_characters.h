// ICU's user-perceived characters for the answer tests: one counter for the whole test program.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "answer/icu/icu_user_characters.h"

inline const tallowbrook::Answer::UserCharacters& icuCharacters() {
  static std::unique_ptr<tallowbrook::Answer::UserCharacters> icu = [] {
    std::string error;
    auto made = tallowbrook::Answer::makeIcuUserCharacters(&error);
    EXPECT_TRUE(made) << error;
    return made;
  }();
  return *icu;
}
