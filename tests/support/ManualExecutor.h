#pragma once

#include <deque>
#include <mutex>
#include <utility>

#include "base/Executor.h"

namespace quillbeam::test {

/// A queue that runs its closures when the test says so, on the thread that says so.
class ManualExecutor final : public Executor {
 public:
  void async(Closure work) override {
    const std::lock_guard lock(mutex_);
    work_.push_back(std::move(work));
  }
  bool isCurrent() const override { return running_; }

  /// Runs `work` as if it had been enqueued and its turn had come.
  template <class Work>
  void run(Work work) {
    const bool outer = std::exchange(running_, true);
    work();
    running_ = outer;
  }
  bool runNext() {
    Closure next;
    {
      const std::lock_guard lock(mutex_);
      if (work_.empty()) return false;
      next = std::move(work_.front());
      work_.pop_front();
    }
    run([&] { std::exchange(next, nullptr)(); });
    return true;
  }
  void runAll() {
    while (runNext()) {
    }
  }

 private:
  std::mutex mutex_;
  std::deque<Closure> work_;
  bool running_ = false;
};

}  // namespace quillbeam::test
