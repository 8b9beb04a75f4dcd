#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "base/Executor.h"
#include "platform/linux/posix/TimerThread.h"

namespace quillbeam {

/// The threads on which serial queues and the global queue run. As many as the machine has cores (four at least); when
/// a job has found no free thread for 10 ms, all of them being blocked in the system or in `sync`, one more is
/// added, up to 64. Signals are blocked in every thread: they belong to the main one.
class ThreadPool {
 public:
  explicit ThreadPool(TimerThread& timers);
  ThreadPool(const ThreadPool&) = delete;
  ThreadPool& operator=(const ThreadPool&) = delete;
  ~ThreadPool() { stop(); }

  void submit(Closure job);
  /// Waits for the jobs that have started; the others, and what comes later, are destroyed.
  void stop();
  std::size_t threadCount() const;

 private:
  void work();
  void addThreadLocked();
  void watchForStallLocked();
  void relieveStall(std::uint64_t takenThen);

  TimerThread& timers_;
  mutable std::mutex mutex_;  // guards everything below
  std::condition_variable wake_;
  std::deque<Closure> jobs_;
  std::vector<std::thread> threads_;
  std::size_t idle_ = 0;
  std::uint64_t taken_ = 0;
  bool watching_ = false;
  bool stopping_ = false;
};

}  // namespace quillbeam
