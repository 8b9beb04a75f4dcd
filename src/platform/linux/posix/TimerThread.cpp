#include "platform/linux/posix/TimerThread.h"

#include "platform/linux/posix/SignalBlocker.h"

namespace quillbeam {

TimerThread::TimerThread() {
  const SignalBlocker blocked;
  thread_ = std::thread([this] { run(); });
}

TimerThread::~TimerThread() { stop(); }

void TimerThread::stop() {
  std::map<Id, Closure> dropped;
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
    dropped.swap(waiting_);
  }
  wake_.notify_one();
  if (thread_.joinable()) thread_.join();
}

TimerThread::Id TimerThread::schedule(Clock::time_point due, Closure fire) {
  std::lock_guard lock(mutex_);
  const Id id(due, nextId_++);
  if (stopping_) return id;
  const auto entry = waiting_.emplace(id, std::move(fire)).first;
  if (entry == waiting_.begin()) wake_.notify_one();
  return id;
}

void TimerThread::cancel(const Id& id) {
  std::map<Id, Closure>::node_type cancelled;  // destroyed after the lock is released
  std::lock_guard lock(mutex_);
  cancelled = waiting_.extract(id);
}

void TimerThread::run() {
  std::unique_lock lock(mutex_);
  while (!stopping_) {
    if (waiting_.empty()) {
      wake_.wait(lock);
      continue;
    }
    const Clock::time_point due = waiting_.begin()->first.first;
    if (Clock::now() < due) {
      wake_.wait_until(lock, due);
      continue;
    }
    Closure fire = std::move(waiting_.extract(waiting_.begin()).mapped());
    lock.unlock();
    fire();
    fire = nullptr;
    lock.lock();
  }
}

}  // namespace quillbeam
