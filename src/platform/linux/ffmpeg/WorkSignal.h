#pragma once

#include <condition_variable>
#include <utility>

#include "base/Mutex.h"

namespace quillbeam {

/// Wakes the one thread that works off queues. Raised any number of times it wakes once; raised before the wait it
/// makes the wait return at once, so nothing is missed between looking at the queues and waiting.
class WorkSignal {
 public:
  void raise() {
    {
      MutexLock lock(mutex_);
      raised_ = true;
    }
    changed_.notify_one();
  }

  void wait() NO_THREAD_ANALYSIS {
    MutexLock lock(mutex_);
    while (!std::exchange(raised_, false)) changed_.wait(mutex_);
  }

 private:
  Mutex mutex_;
  std::condition_variable_any changed_;
  bool raised_ GUARDED_BY(mutex_) = false;
};

}  // namespace quillbeam
