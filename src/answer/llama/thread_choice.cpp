#include "answer/llama/thread_choice.h"

#include <sched.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <limits>
#include <set>
#include <string>
#include <utility>

namespace tallowbrook::Answer {

int chooseThreads(size_t allowedCpus, size_t physicalCores, uint64_t modelBytes,
                  size_t othersRunning) {
  if (allowedCpus == 0) allowedCpus = 1;
  if (physicalCores == 0 || physicalCores > allowedCpus) physicalCores = allowedCpus;
  if (modelBytes < kSmallModelBytes) return 1;
  // Hyper-threads share one core's arithmetic units: more threads than cores only add waiting.
  size_t threads = std::min<size_t>(physicalCores, 64);
  // A thread that has to share its processor stalls every other one at each barrier.
  size_t free = allowedCpus > othersRunning ? allowedCpus - othersRunning : 1;
  return int(std::max<size_t>(std::min(threads, free), 1));
}

size_t othersRunningNow() {
  std::ifstream stat("/proc/stat");
  std::string key;
  size_t running = 0;
  while (stat >> key) {
    if (key == "procs_running") {
      stat >> running;
      return running > 0 ? running - 1 : 0;
    }
    stat.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
  }
  return 0;
}

size_t othersRunning(size_t first, size_t second, size_t third) {
  return std::min({first, second, third});
}

CpuShare cpuShare() {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof set, &set) != 0) return {};
  std::set<std::pair<long, long>> cores;
  size_t allowed = 0;
  for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
    if (!CPU_ISSET(cpu, &set)) continue;
    ++allowed;
    std::string topology = "/sys/devices/system/cpu/cpu" + std::to_string(cpu) + "/topology/";
    long package = -1, core = -1;
    std::ifstream(topology + "physical_package_id") >> package;
    std::ifstream(topology + "core_id") >> core;
    // Unknown topology: count the processor as a core of its own.
    cores.insert(core < 0 ? std::make_pair(-1L - cpu, 0L) : std::make_pair(package, core));
  }
  if (allowed == 0) return {};
  return {allowed, std::max<size_t>(cores.size(), 1)};
}

}  // namespace tallowbrook::Answer
