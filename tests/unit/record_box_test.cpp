#include "record/box.h"

#include <string>
#include <thread>

#include <gtest/gtest.h>

namespace tallowbrook {
namespace {

TEST(Box, StartsEmptyAndHandsAValueToAnotherThread) {
  auto box = makeBox<std::string>();
  EXPECT_FALSE(box->read());
  std::thread producer([box] { box->store("finished"); });
  producer.join();
  EXPECT_EQ(box->read(), "finished");
}

TEST(Box, OutlivesAWaiterThatGaveUp) {
  auto box = makeBox<int>();
  std::thread late([box] { box->store(42); });  // the waiter's reference is gone first
  box.reset();
  late.join();
}

TEST(Box, TheLastStoreWins) {
  auto box = makeBox<int>();
  box->store(1);
  box->store(2);
  EXPECT_EQ(box->read(), 2);
}

}  // namespace
}  // namespace tallowbrook
