// The thread count for the language model.
#include <gtest/gtest.h>

#include "answer/llama/thread_choice.h"

using tallowbrook::Answer::chooseThreads;
using tallowbrook::Answer::cpuShare;
using tallowbrook::Answer::kSmallModelBytes;

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
