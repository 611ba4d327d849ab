// SerialQueue: a thread of our own that runs tasks and repeating timers one at a time.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

namespace tallowbrook {

// Runs submitted tasks in submission order, and timer handlers at their deadlines, never two
// at once, on one worker thread that lives as long as the queue. The worker shares the queue's
// state (`State::lock` guards the task list, the timers and `stopping`; no task runs with it
// held), so a queue may be destroyed by one of its own tasks: the worker then ends on its own.
class SerialQueue {
 public:
  using Task = std::function<void()>;
  using TimerId = uint64_t;

  SerialQueue();
  // Stops the worker after the task that is running, if any; tasks not yet run are dropped.
  // Waits for the worker unless called from one of this queue's tasks.
  ~SerialQueue();
  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;

  // Runs `task` after the tasks submitted before it. Any thread.
  void async(Task task);

  // Runs `task` and waits for it. Must not be called from a task of this queue.
  void sync(const Task& task);

  // Runs `handler` first at now + `interval`, then every `interval` after that deadline (the
  // deadlines do not drift with the handler's run time; deadlines missed while the queue was
  // busy run once, late). Of timers due at the same moment, the one with the shorter interval
  // runs first. Any thread.
  // `start` is the moment the interval is counted from (now when left out), so that timers
  // created together keep their deadlines in step.
  TimerId addTimer(std::chrono::nanoseconds interval, Task handler,
                   std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now());

  // Stops a timer; its handler does not start again after this returns (one that is running
  // now finishes). Unknown ids are ignored. Any thread, tasks of this queue included.
  void cancelTimer(TimerId id);

  // Whether the caller is this queue's worker thread.
  bool isCurrent() const { return std::this_thread::get_id() == worker_.get_id(); }

 private:
  struct Timer {
    std::chrono::steady_clock::time_point deadline;
    std::chrono::nanoseconds interval;
    std::shared_ptr<const Task> handler;  // shared, so a run takes no copy of the function
  };
  struct State {
    std::mutex lock;
    std::condition_variable wake;
    std::deque<Task> tasks;           // guarded by lock
    std::map<TimerId, Timer> timers;  // guarded by lock
    TimerId nextTimer = 1;            // guarded by lock
    bool stopping = false;            // guarded by lock
  };
  static void work(const std::shared_ptr<State>& state);

  std::shared_ptr<State> state_;
  std::thread worker_;
};

}  // namespace tallowbrook
