// SampleQueue against a deque doing the same operations.
#include <gtest/gtest.h>

#include <deque>
#include <random>
#include <vector>

#include "audio/sample_queue.h"

namespace {

using tallowbrook::SampleQueue;

std::vector<int16_t> contents(const SampleQueue& queue) {
  const auto view = queue.view();
  return std::vector<int16_t>(view.begin(), view.end());
}

TEST(SampleQueue, AppendTakeFromTheFrontAndPrependZeros) {
  SampleQueue queue;
  queue.append(std::vector<int16_t>{1, 2, 3, 4, 5});
  queue.dropFront(2);
  EXPECT_EQ(contents(queue), (std::vector<int16_t>{3, 4, 5}));
  queue.prependZeros(1);  // fits in the consumed front
  EXPECT_EQ(contents(queue), (std::vector<int16_t>{0, 3, 4, 5}));
  queue.prependZeros(3);  // does not
  EXPECT_EQ(contents(queue), (std::vector<int16_t>{0, 0, 0, 0, 3, 4, 5}));
  queue.keepNewest(2);
  EXPECT_EQ(contents(queue), (std::vector<int16_t>{4, 5}));
  queue.dropFront(10);
  EXPECT_EQ(queue.size(), 0u);
  queue.append(std::vector<int16_t>{9});
  EXPECT_EQ(contents(queue), (std::vector<int16_t>{9}));
}

TEST(SampleQueue, RandomOperationsMatchADeque) {
  std::mt19937 random(7);
  SampleQueue queue;
  std::deque<int16_t> reference;
  int16_t next = 1;
  for (int step = 0; step < 20000; ++step) {
    const auto n = size_t(random() % 700);
    switch (random() % 5) {
      case 0:
      case 1: {
        std::vector<int16_t> block(n);
        for (auto& sample : block) sample = next++;
        queue.append(block);
        reference.insert(reference.end(), block.begin(), block.end());
        break;
      }
      case 2:
        queue.dropFront(n);
        reference.erase(reference.begin(), reference.begin() + std::min(n, reference.size()));
        break;
      case 3:
        queue.keepNewest(n);
        if (reference.size() > n) reference.erase(reference.begin(), reference.end() - n);
        break;
      case 4:
        queue.prependZeros(n % 50);
        reference.insert(reference.begin(), n % 50, int16_t(0));
        break;
    }
    ASSERT_EQ(queue.size(), reference.size()) << "step " << step;
    ASSERT_TRUE(std::equal(reference.begin(), reference.end(), queue.view().begin()))
        << "step " << step;
  }
}

}  // namespace
