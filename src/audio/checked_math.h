// 64-bit integer arithmetic whose overflow is a programming error: the process stops at once
// rather than carrying a wrapped value on. Pure; any thread.
#pragma once

#include <cstdint>
#include <cstdlib>

namespace tallowbrook {

inline int64_t checkedAdd(int64_t a, int64_t b) {
  int64_t sum;
  if (__builtin_add_overflow(a, b, &sum)) std::abort();
  return sum;
}

inline int64_t checkedMul(int64_t a, int64_t b) {
  int64_t product;
  if (__builtin_mul_overflow(a, b, &product)) std::abort();
  return product;
}

}  // namespace tallowbrook
