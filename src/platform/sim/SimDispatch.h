#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "base/Mutex.h"
#include "platform/Dispatch.h"
#include "platform/sim/SimRandomSource.h"

namespace quillbeam {

class SimQueue;

struct SimDispatchOptions {
  std::uint64_t seed = 1;
  Date wallClock = std::chrono::sys_days{std::chrono::year{2026} / 3 / 9} + std::chrono::hours{7};
  Duration hostTime = std::chrono::seconds{1000};
};

/// Queues and clocks of a simulated process: one thread (the one that made it), virtual time that moves only in the
/// `run…` functions below. When several queues are ready at the same instant the seed decides who goes first, so that a
/// seed is a schedule and a failing one can be replayed. Outside every closure the test's own code counts as running on
/// the main queue. `async` may be called from other threads; whoever does so gives up the replay.
class SimDispatch final : public Dispatch {
 public:
  explicit SimDispatch(SimDispatchOptions options = {});
  /// Serial queues have to be gone by now. What still waits on main and global is destroyed without running.
  ~SimDispatch() override;

  DispatchQueue& main() override;
  DispatchQueue& global() override;
  std::unique_ptr<DispatchQueue> makeSerialQueue(std::string_view label) override;
  MediaTime hostTime() const override;
  Date now() const override;

  // The test's side; never called inside a closure.

  /// Runs everything that is due now; no time passes.
  void runUntilIdle();
  /// Lets `duration` pass, running what falls due on the way.
  void advance(Duration duration);
  void runFor(Duration duration) { advance(duration); }
  /// Runs, closure by closure, until `predicate` holds (true) or `limit` has passed (its last value).
  bool runUntil(const std::function<bool()>& predicate, Duration limit);
  /// Nothing is ready and no timer waits.
  bool isIdle() const;

  /// The wall clock jumps; timers and the host clock do not notice.
  void setWallClock(Date date);
  /// The process dies: whatever waits is destroyed without running and nothing is accepted any more, so that the dead
  /// process's objects can be destroyed quietly. `sync` still runs its work: destructors rely on it.
  void kill();
  /// The next process begins, on the same clocks.
  void revive();

 private:
  friend class SimQueue;
  class Shot;
  struct Waiting {
    SimQueue* queue;
    std::shared_ptr<Shot> shot;
  };

  void enqueue(SimQueue& queue, Closure work);
  TimerHandle schedule(SimQueue& queue, Duration delay, Closure work);
  void runSynchronously(SimQueue& queue, Closure work);
  void retire(SimQueue& queue);

  bool isRunning(const SimQueue& queue) const;
  bool isOnStack(const SimQueue& queue) const;
  void run(SimQueue& queue, Closure work);
  bool runOne();
  std::optional<std::pair<SimQueue*, Closure>> takeReady();
  void promoteDueTimers();
  bool jumpToNextTimer(Duration until);

  const std::thread::id thread_ = std::this_thread::get_id();
  std::vector<const SimQueue*> running_;  // innermost last; touched by `thread_` only

  mutable Mutex mutex_;
  SimRandomSource tieBreak_ GUARDED_BY(mutex_);
  Duration time_ GUARDED_BY(mutex_);
  Duration wallOffset_ GUARDED_BY(mutex_);
  std::map<std::pair<Duration, std::uint64_t>, Waiting> timers_ GUARDED_BY(mutex_);
  std::uint64_t nextTimer_ GUARDED_BY(mutex_) = 0;
  std::vector<SimQueue*> queues_ GUARDED_BY(mutex_);
  bool dead_ GUARDED_BY(mutex_) = false;

  std::unique_ptr<SimQueue> main_;
  std::unique_ptr<SimQueue> global_;
};

}  // namespace quillbeam
