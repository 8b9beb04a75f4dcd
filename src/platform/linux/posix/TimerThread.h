#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "base/Executor.h"

namespace quillbeam {

/// One thread that calls closures at their time. They must be short: a timer's closure enqueues the real work.
class TimerThread {
 public:
  using Clock = std::chrono::steady_clock;  // CLOCK_MONOTONIC
  using Id = std::pair<Clock::time_point, std::uint64_t>;

  TimerThread();
  TimerThread(const TimerThread&) = delete;
  TimerThread& operator=(const TimerThread&) = delete;
  ~TimerThread();

  Id schedule(Clock::time_point due, Closure fire);
  /// Forgets it unless it has fired or is firing right now.
  void cancel(const Id& id);
  /// After this nothing fires any more; what waits is destroyed.
  void stop();

 private:
  void run();

  std::mutex mutex_;  // guards everything below but the thread
  std::condition_variable wake_;
  std::map<Id, Closure> waiting_;
  std::uint64_t nextId_ = 0;
  bool stopping_ = false;
  std::thread thread_;
};

}  // namespace quillbeam
