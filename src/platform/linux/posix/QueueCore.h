#pragma once

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include "base/Executor.h"
#include "platform/linux/posix/FileDescriptor.h"
#include "platform/linux/posix/ThreadPool.h"

namespace quillbeam {

/// What a queue is made of. Shared with timers and with the threads that run it, so that none of them can meet a
/// queue that is half gone.
class QueueCore {
 public:
  QueueCore() = default;
  QueueCore(const QueueCore&) = delete;
  QueueCore& operator=(const QueueCore&) = delete;
  virtual ~QueueCore() = default;

  virtual void enqueue(Closure work) = 0;
  virtual void runAndWait(Closure work) = 0;
  /// Runs what was enqueued, then accepts nothing any more.
  virtual void close() = 0;
  /// Whether the calling thread is inside one of its closures.
  virtual bool isCurrent() const { return current() == this; }

 protected:
  void run(Closure work) const;
  static const QueueCore*& current();
};

/// Closures one at a time on whatever pool thread is free, or on the thread of a `sync` that found the queue idle.
class SerialCore final : public QueueCore, public std::enable_shared_from_this<SerialCore> {
 public:
  explicit SerialCore(ThreadPool& pool) : pool_(pool) {}

  void enqueue(Closure work) override;
  void runAndWait(Closure work) override;
  void close() override;

 private:
  enum class State { idle, busy, closed };
  void submitLocked();
  void runNext();
  void passOnLocked();

  ThreadPool& pool_;
  std::mutex mutex_;  // guards everything below
  std::condition_variable becameIdle_;
  std::deque<Closure> waiting_;
  State state_ = State::idle;
};

/// Closures as the pool has threads for them, at the same time as each other.
class ConcurrentCore final : public QueueCore, public std::enable_shared_from_this<ConcurrentCore> {
 public:
  explicit ConcurrentCore(ThreadPool& pool) : pool_(pool) {}

  void enqueue(Closure work) override;
  void runAndWait(Closure work) override { run(std::move(work)); }
  void close() override {}

 private:
  ThreadPool& pool_;
};

/// Closures of the thread that made it, whenever that thread comes round to `drain`.
class MainCore final : public QueueCore {
 public:
  MainCore();

  void enqueue(Closure work) override;
  void runAndWait(Closure work) override;
  void close() override;
  /// The main thread outside every closure counts too: what runs there before the loop, or in a UI's own handlers.
  bool isCurrent() const override;

  /// Runs what waits now. A nested call (a UI loop inside a closure) does nothing: closures run one at a time.
  void drain();
  /// Readable while something waits.
  int pollableDescriptor() const { return ready_.get(); }
  void waitUntilReady() const;

 private:
  const std::thread::id thread_ = std::this_thread::get_id();
  FileDescriptor ready_;
  bool draining_ = false;  // main thread only
  std::mutex mutex_;       // guards everything below
  std::deque<Closure> waiting_;
  bool closed_ = false;
};

}  // namespace quillbeam
