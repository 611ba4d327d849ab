// What every fuzz target's property checks share: a property that does not hold aborts, which
// libFuzzer reports with the input (and the replay driver turns into a failed test).
#pragma once

#include <cstdlib>

namespace fuzz {

inline void check(bool holds) {
  if (!holds) std::abort();
}

}  // namespace fuzz
