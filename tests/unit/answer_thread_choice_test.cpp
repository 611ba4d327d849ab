// The thread count for the language model.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "answer/llama/thread_choice.h"

using tallowbrook::Answer::chooseThreads;
using tallowbrook::Answer::cpuShare;
using tallowbrook::Answer::kSmallModelBytes;
using tallowbrook::Answer::othersRunning;
using tallowbrook::Answer::othersRunningNow;

TEST(ThreadChoice, ATinyModelGetsOneThread) {
  EXPECT_EQ(chooseThreads(2, 2, 500 * 1024), 1);
  EXPECT_EQ(chooseThreads(64, 32, kSmallModelBytes - 1), 1);
}

TEST(ThreadChoice, ALargerModelGetsAThreadPerPhysicalCore) {
  const uint64_t model = 2ull << 30;
  EXPECT_EQ(chooseThreads(2, 2, model), 2);
  EXPECT_EQ(chooseThreads(8, 4, model), 4);  // hyper-threads do not count
  EXPECT_EQ(chooseThreads(1, 1, model), 1);
  EXPECT_EQ(chooseThreads(3, 8, model), 3);  // never more than the processors allowed
  EXPECT_EQ(chooseThreads(6, 0, model), 6);  // unknown topology
  EXPECT_EQ(chooseThreads(0, 0, model), 1);
  EXPECT_EQ(chooseThreads(512, 256, model), 64);
}

TEST(ThreadChoice, BusyProcessorsAreLeftToTheirWork) {
  const uint64_t model = 2ull << 30;
  EXPECT_EQ(chooseThreads(2, 2, model, 0), 2);
  EXPECT_EQ(chooseThreads(2, 2, model, 1), 1);
  EXPECT_EQ(chooseThreads(2, 2, model, 2), 1);  // never fewer than one
  EXPECT_EQ(chooseThreads(16, 8, model, 3), 8);
  EXPECT_EQ(chooseThreads(16, 8, model, 12), 4);
  EXPECT_EQ(chooseThreads(16, 8, 1024, 0), 1);
}

TEST(ThreadChoice, OnlyWorkSeenInEveryLookCounts) {
  EXPECT_EQ(othersRunning(0, 1, 0), 0u);
  EXPECT_EQ(othersRunning(1, 1, 0), 0u);
  EXPECT_EQ(othersRunning(2, 2, 2), 2u);
  EXPECT_EQ(othersRunning(3, 1, 2), 1u);
}

TEST(ThreadChoice, OtherWorkIsCounted) {
  // This thread spins while another is busy too: at least one other is running.
  std::atomic<bool> stop{false};
  std::thread busy([&] {
    while (!stop) {
    }
  });
  size_t seen = 0;
  for (int i = 0; i < 50 && seen == 0; ++i) seen = othersRunningNow();
  stop = true;
  busy.join();
  EXPECT_GE(seen, 1u);
}

TEST(ThreadChoice, TheShareFollowsTheAffinityMask) {
  auto all = cpuShare();
  EXPECT_GE(all.allowedCpus, 1u);
  EXPECT_GE(all.physicalCores, 1u);
  EXPECT_LE(all.physicalCores, all.allowedCpus);

  cpu_set_t saved, one;
  ASSERT_EQ(sched_getaffinity(0, sizeof saved, &saved), 0);
  CPU_ZERO(&one);
  for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
    if (CPU_ISSET(cpu, &saved)) {
      CPU_SET(cpu, &one);
      break;
    }
  }
  ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
  auto single = cpuShare();
  sched_setaffinity(0, sizeof saved, &saved);
  EXPECT_EQ(single.allowedCpus, 1u);
  EXPECT_EQ(single.physicalCores, 1u);
}
