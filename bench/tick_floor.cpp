// The floor of any recorder that mixes on a 50 ms tick: a process that does nothing but wake
// on that schedule for SECONDS, then prints the CPU time (user + system) it took, in seconds.
// bench/record runs it beside the helper and the parecords.
//
//   bench-tick-floor SECONDS
#include <sys/resource.h>
#include <time.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: bench-tick-floor SECONDS\n");
    return 2;
  }
  const long ticks = std::lround(std::atof(argv[1]) * 20);
  timespec next{};
  clock_gettime(CLOCK_MONOTONIC, &next);
  for (long k = 0; k < ticks; ++k) {
    next.tv_nsec += 50'000'000;
    if (next.tv_nsec >= 1'000'000'000) {
      next.tv_nsec -= 1'000'000'000;
      ++next.tv_sec;
    }
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr) != 0) {
    }
  }
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const double cpu = double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                     double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
  std::printf("%.6f\n", cpu);
  return 0;
}
