#pragma once

#include <chrono>
#include <memory>
#include <string_view>

#include "base/Completion.h"
#include "base/Date.h"
#include "base/Executor.h"
#include "base/MediaTime.h"
#include "base/Task.h"

namespace quillbeam {

using Duration = std::chrono::nanoseconds;

/// Stops a delayed closure when it is reset or destroyed before the closure has started. Safe from any thread; from the
/// closure's own queue it is exact (the closure will not run), from elsewhere the closure may be starting right now.
class Timer {
 public:
  virtual ~Timer() = default;
};
using TimerHandle = std::unique_ptr<Timer>;

/// A serial queue: closures run one at a time in the order they were enqueued; which thread runs them is nobody's
/// business. Queues outlive what is enqueued on them; destroying one first runs what was enqueued.
class DispatchQueue : public Executor {
 public:
  virtual std::string_view label() const = 0;

  /// Runs `work` on the queue after everything enqueued before it, and waits. Never called on the queue itself, and
  /// never by the main queue on a queue that may wait for main.
  virtual void sync(Closure work) = 0;

  /// Enqueues `work` once, `delay` from now on the monotonic clock; not before, possibly later.
  virtual TimerHandle after(Duration delay, Closure work) = 0;
};

/// The process's queues and clocks. One per world: a real one, or a simulated one with virtual time.
class Dispatch {
 public:
  virtual ~Dispatch() = default;

  virtual DispatchQueue& main() = 0;
  /// For short work that belongs to no queue. Closures may run at the same time as each other: `isCurrent` is true in
  /// each of them, but state may not be confined to it.
  virtual DispatchQueue& global() = 0;
  virtual std::unique_ptr<DispatchQueue> makeSerialQueue(std::string_view label) = 0;

  /// The host clock that stamps captured media (CLOCK_MONOTONIC), as nanoseconds.
  virtual MediaTime hostTime() const = 0;
  /// The wall clock; may jump.
  virtual Date now() const = 0;
};

/// `co_await delay(queue, 500ms)`: waits that long; cancelled with the awaiting task.
Task<void> delay(DispatchQueue& queue, Duration duration);
/// Runs `work` (returning a Result) on `queue` and resumes with what it returned.
template <class T, class Work>
Task<T> runOn(DispatchQueue& queue, Work work) {
  co_return co_await completed<T>(
      [&](Completion<T> done) { queue.async([done, work = std::move(work)]() mutable { done(work()); }); });
}
/// Resumes after everything that is enqueued on `queue` now has run.
Task<void> drained(DispatchQueue& queue);

}  // namespace quillbeam
