#include "platform/linux/posix/ThreadPool.h"

#include <algorithm>
#include <utility>

#include "platform/linux/posix/SignalBlocker.h"

namespace quillbeam {

namespace {

constexpr std::size_t mostThreads = 64;
constexpr std::chrono::milliseconds stallPatience{10};

std::size_t usualThreads() { return std::max(4u, std::thread::hardware_concurrency()); }

}  // namespace

ThreadPool::ThreadPool(TimerThread& timers) : timers_(timers) {}

void ThreadPool::stop() {
  std::vector<std::thread> threads;
  std::deque<Closure> dropped;
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
    dropped.swap(jobs_);
    threads.swap(threads_);
  }
  wake_.notify_all();
  for (std::thread& thread : threads) thread.join();
}

void ThreadPool::submit(Closure job) {
  std::lock_guard lock(mutex_);
  if (stopping_) return;
  jobs_.push_back(std::move(job));
  if (idle_ >= jobs_.size()) {
    wake_.notify_one();
  } else if (threads_.size() < usualThreads()) {
    addThreadLocked();
  } else {
    watchForStallLocked();
  }
}

std::size_t ThreadPool::threadCount() const {
  std::lock_guard lock(mutex_);
  return threads_.size();
}

void ThreadPool::addThreadLocked() {
  const SignalBlocker blocked;  // inherited by the thread
  threads_.emplace_back([this] { work(); });
}

void ThreadPool::watchForStallLocked() {
  if (watching_ || threads_.size() >= mostThreads) return;
  watching_ = true;
  timers_.schedule(TimerThread::Clock::now() + stallPatience, [this, taken = taken_] { relieveStall(taken); });
}

void ThreadPool::relieveStall(std::uint64_t takenThen) {
  std::lock_guard lock(mutex_);
  watching_ = false;
  if (stopping_ || jobs_.empty()) return;
  if (taken_ == takenThen && threads_.size() < mostThreads) addThreadLocked();
  watchForStallLocked();
}

void ThreadPool::work() {
  std::unique_lock lock(mutex_);
  while (true) {
    ++idle_;
    wake_.wait(lock, [this] { return stopping_ || !jobs_.empty(); });
    --idle_;
    if (stopping_) return;
    Closure job = std::move(jobs_.front());
    jobs_.pop_front();
    ++taken_;
    lock.unlock();
    job();
    job = nullptr;
    lock.lock();
  }
}

}  // namespace quillbeam
