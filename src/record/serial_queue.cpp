#include "record/serial_queue.h"

#include <future>
#include <utility>

namespace tallowbrook {

SerialQueue::SerialQueue() : state_(std::make_shared<State>()) {
  worker_ = std::thread([state = state_] { work(state); });
}

SerialQueue::~SerialQueue() {
  {
    std::lock_guard<std::mutex> held(state_->lock);
    state_->stopping = true;
    state_->tasks.clear();
    state_->timers.clear();
  }
  state_->wake.notify_all();
  if (isCurrent()) {
    worker_.detach();
  } else if (worker_.joinable()) {
    worker_.join();
  }
}

void SerialQueue::async(Task task) {
  // Notified under the lock: once it is released the task may run and even destroy this
  // queue, so nothing of it is touched afterwards.
  std::lock_guard<std::mutex> held(state_->lock);
  state_->tasks.push_back(std::move(task));
  state_->wake.notify_all();
}

void SerialQueue::sync(const Task& task) {
  std::promise<void> done;
  async([&task, &done] {
    task();
    done.set_value();
  });
  done.get_future().wait();
}

SerialQueue::TimerId SerialQueue::addTimer(std::chrono::nanoseconds interval, Task handler,
                                           std::chrono::steady_clock::time_point start) {
  std::lock_guard<std::mutex> held(state_->lock);
  const TimerId id = state_->nextTimer++;
  state_->timers[id] =
      Timer{start + interval, interval, std::make_shared<const Task>(std::move(handler))};
  state_->wake.notify_all();
  return id;
}

void SerialQueue::cancelTimer(TimerId id) {
  std::lock_guard<std::mutex> held(state_->lock);
  state_->timers.erase(id);
}

void SerialQueue::work(const std::shared_ptr<State>& state) {
  std::unique_lock<std::mutex> held(state->lock);
  while (!state->stopping) {
    if (!state->tasks.empty()) {
      Task task = std::move(state->tasks.front());
      state->tasks.pop_front();
      held.unlock();
      task();
      task = nullptr;  // what the task holds is released before the lock is taken again
      held.lock();
      continue;
    }
    // The timer due first, if any; of timers due at the same moment, the more frequent one
    // first (so the mix is drained before the level is reported at the same instant).
    auto due = state->timers.end();
    for (auto it = state->timers.begin(); it != state->timers.end(); ++it) {
      if (due == state->timers.end() || it->second.deadline < due->second.deadline ||
          (it->second.deadline == due->second.deadline &&
           it->second.interval < due->second.interval)) {
        due = it;
      }
    }
    if (due == state->timers.end()) {
      state->wake.wait(held);
      continue;
    }
    const auto now = std::chrono::steady_clock::now();
    // A copy: wait_until reads the deadline again after waking, and while it waits the lock is
    // free and the timer may be cancelled, its entry freed.
    const auto deadline = due->second.deadline;
    if (deadline > now) {
      state->wake.wait_until(held, deadline);
      continue;
    }
    Timer& timer = due->second;
    while (timer.deadline <= now) timer.deadline += timer.interval;
    std::shared_ptr<const Task> handler = timer.handler;  // the timer may be cancelled meanwhile
    held.unlock();
    (*handler)();
    handler = nullptr;
    held.lock();
  }
}

}  // namespace tallowbrook
