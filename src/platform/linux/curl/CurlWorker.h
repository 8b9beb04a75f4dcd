#pragma once

#include <curl/curl.h>

#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <thread>

#include "base/Executor.h"
#include "base/Mutex.h"
#include "platform/Dispatch.h"
#include "platform/linux/curl/CurlExchange.h"
#include "platform/linux/curl/SuspendClock.h"

namespace quillbeam {

/// The network's thread: owns the one multi handle with its connections and drives every exchange. Others hand it work
/// (`async`), which runs between two rounds of the network. After the machine has slept, all connections are dropped:
/// transfers begin again, other exchanges fail with `NetworkError::connectionLost`.
class CurlWorker final : public Executor {
 public:
  explicit CurlWorker(SuspendClock& suspendClock);
  /// Runs what was handed over; forgets the exchanges under way.
  ~CurlWorker() override;

  void async(Closure work) override;
  bool isCurrent() const override;
  /// Runs `work` after everything handed over before it, and waits. Not on the worker.
  void sync(Closure work);

  // On the worker.

  /// Runs `work` once, `delay` from now.
  void after(Duration delay, Closure work);
  /// Its outcome is told on the worker, later, when the exchange is on its way out: there, others may be started but
  /// none forgotten.
  CurlExchange& start(std::unique_ptr<CurlExchange> exchange);
  /// Takes it away without a word.
  void forget(CurlExchange& exchange);

 private:
  using Clock = std::chrono::steady_clock;
  using Exchanges = std::map<CURL*, std::unique_ptr<CurlExchange>>;

  void run();
  bool runPending() RUNS_ON(this);
  void runDueTimers() RUNS_ON(this);
  void renewAfterSuspend() RUNS_ON(this);
  void replaceMulti() RUNS_ON(this);
  void endFinished() RUNS_ON(this);
  void endStalled() RUNS_ON(this);
  std::unique_ptr<CurlExchange> take(Exchanges::iterator exchange) RUNS_ON(this);
  int millisecondsToWait() const RUNS_ON(this);

  SuspendClock& suspendClock_;
  Duration timeSuspended_ CONFINED_TO(this);
  Exchanges exchanges_ CONFINED_TO(this);
  std::multimap<Clock::time_point, Closure> timers_ CONFINED_TO(this);

  Mutex mutex_;
  // Replaced by the worker under the mutex, which it alone may read without.
  CURLM* multi_;
  std::deque<Closure> pending_ GUARDED_BY(mutex_);
  bool stopping_ GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace quillbeam
