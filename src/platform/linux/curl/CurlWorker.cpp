#include "platform/linux/curl/CurlWorker.h"

#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <future>
#include <utility>
#include <vector>

#include "base/Check.h"

namespace quillbeam {

namespace {

using namespace std::chrono_literals;

/// How often exchanges are looked at though nothing happens, for stalls and for a sleep of the machine.
constexpr auto glance = 1s;
constexpr auto longestWait = 1h;
/// Both clocks are read one after the other; less is no sleep.
constexpr Duration shortestSleep = 1s;

thread_local const CurlWorker* current = nullptr;

void initialiseLibrary() {
  static const bool initialised = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  QB_CHECK(initialised);
}

CURLM* makeMulti() {
  initialiseLibrary();
  CURLM* multi = curl_multi_init();
  QB_CHECK(multi != nullptr);
  return multi;
}

}  // namespace

CurlWorker::CurlWorker(SuspendClock& suspendClock)
    : suspendClock_(suspendClock), timeSuspended_(suspendClock.timeSuspended()), multi_(makeMulti()) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);  // inherited: no signal is handled there
  thread_ = std::thread([this] { run(); });
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

CurlWorker::~CurlWorker() {
  {
    MutexLock lock(mutex_);
    stopping_ = true;
    curl_multi_wakeup(multi_);
  }
  thread_.join();
  curl_multi_cleanup(multi_);
}

void CurlWorker::async(Closure work) {
  MutexLock lock(mutex_);
  pending_.push_back(std::move(work));
  if (pending_.size() == 1) curl_multi_wakeup(multi_);
}

bool CurlWorker::isCurrent() const { return current == this; }

void CurlWorker::sync(Closure work) {
  QB_CHECK(!isCurrent());
  std::promise<void> done;
  const std::future<void> isDone = done.get_future();
  async([&work, done = std::move(done)]() mutable {
    work();
    done.set_value();
  });
  isDone.wait();
}

void CurlWorker::after(Duration delay, Closure work) {
  assertCurrent();
  timers_.emplace(Clock::now() + delay, std::move(work));
}

CurlExchange& CurlWorker::start(std::unique_ptr<CurlExchange> exchange) {
  assertCurrent();
  CurlExchange& started = *exchange;
  QB_CHECK(curl_multi_add_handle(multi_, started.easy()) == CURLM_OK);
  exchanges_.emplace(started.easy(), std::move(exchange));
  return started;
}

void CurlWorker::forget(CurlExchange& exchange) {
  assertCurrent();
  const auto found = exchanges_.find(exchange.easy());
  QB_CHECK(found != exchanges_.end());
  take(found);
}

std::unique_ptr<CurlExchange> CurlWorker::take(Exchanges::iterator exchange) {
  auto taken = std::move(exchange->second);
  exchanges_.erase(exchange);
  curl_multi_remove_handle(multi_, taken->easy());
  return taken;
}

// ---- the thread

void CurlWorker::run() {
  current = this;
  assertCurrent();
  pthread_setname_np(pthread_self(), "network");
  while (runPending()) {
    runDueTimers();
    int stillRunning = 0;
    curl_multi_perform(multi_, &stillRunning);
    endFinished();
    endStalled();
    curl_multi_poll(multi_, nullptr, 0, millisecondsToWait(), nullptr);
    renewAfterSuspend();
  }
  while (!exchanges_.empty()) take(exchanges_.begin());
  timers_.clear();
}

/// False when it is time to end.
bool CurlWorker::runPending() {
  while (true) {
    std::deque<Closure> batch;
    {
      MutexLock lock(mutex_);
      if (pending_.empty()) return !stopping_;
      batch.swap(pending_);
    }
    for (Closure& work : batch) {
      work();
      work = nullptr;
    }
  }
}

void CurlWorker::runDueTimers() {
  while (!timers_.empty() && timers_.begin()->first <= Clock::now()) {
    auto due = timers_.extract(timers_.begin());
    due.mapped()();
  }
}

void CurlWorker::endFinished() {
  int left = 0;
  while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
    if (message->msg != CURLMSG_DONE) continue;
    const CURLcode code = message->data.result;  // the message goes with the handle
    const auto exchange = take(exchanges_.find(message->easy_handle));
    exchange->end(code);
  }
}

void CurlWorker::endStalled() {
  // All before the first is told: its owner may start another, which must not be taken for one of them.
  std::vector<std::unique_ptr<CurlExchange>> stalled;
  for (auto next = exchanges_.begin(); next != exchanges_.end();) {
    const auto exchange = next++;
    if (exchange->second->hasStalled()) stalled.push_back(take(exchange));
  }
  for (const auto& exchange : stalled) exchange->fail(NetworkError::timedOut);
}

int CurlWorker::millisecondsToWait() const {
  Clock::duration wait = exchanges_.empty() ? Clock::duration(longestWait) : Clock::duration(glance);
  if (!timers_.empty()) wait = std::min(wait, timers_.begin()->first - Clock::now());
  return static_cast<int>(std::max<std::int64_t>(0, std::chrono::ceil<std::chrono::milliseconds>(wait).count()));
}

// ---- after a sleep

void CurlWorker::renewAfterSuspend() {
  const Duration timeSuspended = suspendClock_.timeSuspended();
  if (std::exchange(timeSuspended_, timeSuspended) + shortestSleep > timeSuspended) return;
  Exchanges interrupted = std::exchange(exchanges_, {});
  for (const auto& [easy, exchange] : interrupted) curl_multi_remove_handle(multi_, easy);
  replaceMulti();
  for (auto& [easy, exchange] : interrupted) {
    if (!exchange->isTransfer()) continue;
    exchange->beginAgain();
    start(std::move(exchange));
  }
  for (auto& [easy, exchange] : interrupted) {
    if (exchange) exchange->fail(NetworkError::connectionLost);
  }
}

void CurlWorker::replaceMulti() {
  CURLM* dead = multi_;
  {
    MutexLock lock(mutex_);
    multi_ = makeMulti();
    curl_multi_wakeup(multi_);  // a call to the old one may have come to nothing
  }
  curl_multi_cleanup(dead);
}

}  // namespace quillbeam
