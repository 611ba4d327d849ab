// How many threads the language model computes with. llama.cpp's default (4) is wrong on small
// machines, and its threads meet at a spinning barrier after every operation, so a thread that
// the scheduler takes off its core holds up all the others: on a two-core machine with both
// cores busy, two threads made an answer 30 to 100 times slower than one. So: a thread per
// physical core this process may run on and that is not busy with other work right now, and one
// for a model so small that splitting its matrices costs more than computing them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tallowbrook::Answer {

// Below this size a model's per-token work is too small to split between threads.
inline constexpr uint64_t kSmallModelBytes = 16ull << 20;

// The thread count for a model of `modelBytes` on `allowedCpus` logical processors (this
// process's affinity mask) that sit on `physicalCores` distinct cores (0: unknown, taken as
// allowedCpus), while `othersRunning` other threads of the machine want a processor: at most
// the processors they leave free. At least 1. Pure.
int chooseThreads(size_t allowedCpus, size_t physicalCores, uint64_t modelBytes,
                  size_t othersRunning = 0);

// The logical processors this process may run on and the distinct physical cores among them,
// from sched_getaffinity and /sys/devices/system/cpu/cpuN/topology. At least 1 each. Any
// thread.
struct CpuShare {
  size_t allowedCpus = 1;
  size_t physicalCores = 1;
};
CpuShare cpuShare();

// The threads of other work running or ready to run on the machine at this moment: one look at
// /proc/stat's procs_running, less the calling thread (0 when unknown). Any thread.
size_t othersRunningNow();

// Other work that keeps running, from three looks taken some work apart: the least, so that a
// thread only passing through (a timer, a kernel worker busy while the model's pages come in)
// is not taken for a busy core, while work that keeps a processor busy shows in every look.
// The looks are spread by work rather than by sleeping: on a busy machine each wake-up from a
// sleep waits tens of milliseconds for a processor. Pure.
size_t othersRunning(size_t first, size_t second, size_t third);

}  // namespace tallowbrook::Answer
