// Box: hands the outcome of an asynchronous operation to a waiting thread.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <utility>

namespace tallowbrook {

// A reference-counted holder (always used through std::shared_ptr, so an operation that
// finishes after its waiter gave up still has somewhere to write) with an optional `stored`
// value guarded by `lock`. Any thread may call both members.
template <typename T>
class Box {
 public:
  // Replaces the stored value. Takes `lock`.
  void store(T value) {
    std::lock_guard<std::mutex> held(lock);
    stored = std::move(value);
  }

  // A copy of the stored value, if any. Takes `lock`.
  std::optional<T> read() {
    std::lock_guard<std::mutex> held(lock);
    return stored;
  }

  std::mutex lock;
  std::optional<T> stored;  // guarded by `lock`
};

// A new, empty box.
template <typename T>
std::shared_ptr<Box<T>> makeBox() {
  return std::make_shared<Box<T>>();
}

}  // namespace tallowbrook
