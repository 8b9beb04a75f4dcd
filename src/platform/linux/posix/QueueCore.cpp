#include "platform/linux/posix/QueueCore.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <utility>

#include "base/Check.h"

namespace quillbeam {

namespace {

/// Lets one thread wait for a closure that another one runs.
class Baton {
 public:
  void pass() {
    std::lock_guard lock(mutex_);
    passed_ = true;
    arrived_.notify_one();
  }
  void wait() {
    std::unique_lock lock(mutex_);
    arrived_.wait(lock, [this] { return passed_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable arrived_;
  bool passed_ = false;
};

}  // namespace

const QueueCore*& QueueCore::current() {
  static thread_local const QueueCore* current = nullptr;
  return current;
}

void QueueCore::run(Closure work) const {
  const QueueCore* outer = std::exchange(current(), this);
  work();
  work = nullptr;  // what the closure owned is destroyed on its queue
  current() = outer;
}

// ---- SerialCore

void SerialCore::enqueue(Closure work) {
  std::lock_guard lock(mutex_);
  if (state_ == State::closed) return;
  waiting_.push_back(std::move(work));
  if (state_ == State::idle) submitLocked();
}

void SerialCore::submitLocked() {
  state_ = State::busy;
  pool_.submit([self = shared_from_this()] { self->runNext(); });
}

// One closure per turn: a busy queue goes to the back of the pool's line, behind its neighbours.
void SerialCore::runNext() {
  Closure work;
  {
    std::lock_guard lock(mutex_);
    work = std::move(waiting_.front());
    waiting_.pop_front();
  }
  run(std::move(work));
  std::lock_guard lock(mutex_);
  passOnLocked();
}

void SerialCore::passOnLocked() {
  if (!waiting_.empty()) return submitLocked();
  state_ = State::idle;
  becameIdle_.notify_all();
}

void SerialCore::runAndWait(Closure work) {
  QB_CHECK(!isCurrent());
  Baton baton;
  {
    std::unique_lock lock(mutex_);
    if (state_ == State::idle) {
      state_ = State::busy;
      lock.unlock();
      run(std::move(work));
      lock.lock();
      return passOnLocked();
    }
    QB_CHECK(state_ == State::busy);
    waiting_.push_back([this, &work, &baton] {
      run(std::move(work));
      baton.pass();
    });
  }
  baton.wait();
}

void SerialCore::close() {
  QB_CHECK(!isCurrent());
  std::unique_lock lock(mutex_);
  becameIdle_.wait(lock, [this] { return state_ == State::idle; });
  state_ = State::closed;
}

// ---- ConcurrentCore

void ConcurrentCore::enqueue(Closure work) {
  pool_.submit([self = shared_from_this(), work = std::move(work)]() mutable { self->run(std::move(work)); });
}

// ---- MainCore

MainCore::MainCore() : ready_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) { QB_CHECK(ready_.isOpen()); }

bool MainCore::isCurrent() const {
  return std::this_thread::get_id() == thread_ && (current() == nullptr || current() == this);
}

void MainCore::enqueue(Closure work) {
  std::lock_guard lock(mutex_);
  if (closed_) return;
  waiting_.push_back(std::move(work));
  if (waiting_.size() == 1) ::eventfd_write(ready_.get(), 1);
}

void MainCore::runAndWait(Closure work) {
  QB_CHECK(std::this_thread::get_id() != thread_);
  Baton baton;
  enqueue([this, &work, &baton] {
    run(std::move(work));
    baton.pass();
  });
  baton.wait();
}

void MainCore::drain() {
  QB_CHECK(std::this_thread::get_id() == thread_);
  ::eventfd_t ignored = 0;
  ::eventfd_read(ready_.get(), &ignored);
  if (std::exchange(draining_, true)) return;
  std::deque<Closure> batch;
  {
    std::lock_guard lock(mutex_);
    batch.swap(waiting_);
  }
  while (!batch.empty()) {
    run(std::move(batch.front()));
    batch.pop_front();
  }
  draining_ = false;
  // A nested call may have cleared the signal of closures that are still there.
  std::lock_guard lock(mutex_);
  if (!waiting_.empty()) ::eventfd_write(ready_.get(), 1);
}

void MainCore::waitUntilReady() const {
  pollfd descriptor{.fd = ready_.get(), .events = POLLIN, .revents = 0};
  while (::poll(&descriptor, 1, -1) < 0) QB_CHECK(errno == EINTR);
}

void MainCore::close() {
  std::deque<Closure> dropped;
  std::lock_guard lock(mutex_);
  closed_ = true;
  dropped.swap(waiting_);
}

}  // namespace quillbeam
