// How many threads the language model computes with. llama.cpp's default (4) is wrong on small
// machines, and its threads spin while they wait, so on a busy desktop extra threads cost more
// than they give: a thread per physical core this process may run on, and one for a model so
// small that splitting its matrices costs more than computing them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tallowbrook::Answer {

// Below this size a model's per-token work is too small to split between threads.
inline constexpr uint64_t kSmallModelBytes = 64ull << 20;

// The thread count for a model of `modelBytes` on `allowedCpus` logical processors (this
// process's affinity mask) that sit on `physicalCores` distinct cores (0: unknown, taken as
// allowedCpus). At least 1. Pure.
int chooseThreads(size_t allowedCpus, size_t physicalCores, uint64_t modelBytes);

// The logical processors this process may run on and the distinct physical cores among them,
// from sched_getaffinity and /sys/devices/system/cpu/cpuN/topology. At least 1 each. Any
// thread.
struct CpuShare {
  size_t allowedCpus = 1;
  size_t physicalCores = 1;
};
CpuShare cpuShare();

}  // namespace tallowbrook::Answer
