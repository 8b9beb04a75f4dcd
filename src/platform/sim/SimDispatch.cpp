#include "platform/sim/SimDispatch.h"

#include <algorithm>
#include <string>

#include "base/Check.h"

namespace quillbeam {

namespace {

/// More closures than this without time passing is a queue that feeds itself for ever.
constexpr int closuresPerInstant = 1'000'000;

}  // namespace

/// A delayed closure: whoever takes it first (the queue to run it, the handle to destroy it) has it. The rest is empty.
class SimDispatch::Shot {
 public:
  explicit Shot(Closure work) : work_(std::move(work)) {}
  Closure take() {
    MutexLock lock(mutex_);
    return std::exchange(work_, {});
  }
  bool isCancelled() const {
    MutexLock lock(mutex_);
    return !work_;
  }

 private:
  mutable Mutex mutex_;
  Closure work_ GUARDED_BY(mutex_);
};

enum class Concurrency { serial, concurrent };

class SimQueue final : public DispatchQueue {
 public:
  SimQueue(SimDispatch& dispatch, std::string_view label, Concurrency concurrency)
      : concurrency(concurrency), dispatch_(dispatch), label_(label) {}
  ~SimQueue() override { dispatch_.retire(*this); }

  void async(Closure work) override { dispatch_.enqueue(*this, std::move(work)); }
  bool isCurrent() const override { return dispatch_.isRunning(*this); }
  std::string_view label() const override { return label_; }
  void sync(Closure work) override { dispatch_.runSynchronously(*this, std::move(work)); }
  TimerHandle after(Duration delay, Closure work) override { return dispatch_.schedule(*this, delay, std::move(work)); }

  const Concurrency concurrency;
  std::deque<Closure> ready;  // guarded by the dispatch's mutex

 private:
  SimDispatch& dispatch_;
  std::string label_;
};

SimDispatch::SimDispatch(SimDispatchOptions options)
    : tieBreak_(options.seed),
      time_(options.hostTime),
      wallOffset_(options.wallClock.time_since_epoch() - options.hostTime),
      main_(std::make_unique<SimQueue>(*this, "main", Concurrency::serial)),
      global_(std::make_unique<SimQueue>(*this, "global", Concurrency::concurrent)) {
  MutexLock lock(mutex_);
  queues_ = {main_.get(), global_.get()};
}

SimDispatch::~SimDispatch() { kill(); }

DispatchQueue& SimDispatch::main() { return *main_; }
DispatchQueue& SimDispatch::global() { return *global_; }

std::unique_ptr<DispatchQueue> SimDispatch::makeSerialQueue(std::string_view label) {
  auto queue = std::make_unique<SimQueue>(*this, label, Concurrency::serial);
  MutexLock lock(mutex_);
  queues_.push_back(queue.get());
  return queue;
}

MediaTime SimDispatch::hostTime() const {
  MutexLock lock(mutex_);
  return MediaTime::from(time_);
}

Date SimDispatch::now() const {
  MutexLock lock(mutex_);
  return Date(std::chrono::floor<std::chrono::microseconds>(time_ + wallOffset_));
}

void SimDispatch::setWallClock(Date date) {
  MutexLock lock(mutex_);
  wallOffset_ = date.time_since_epoch() - time_;
}

// ---- what runs next

void SimDispatch::enqueue(SimQueue& queue, Closure work) {
  MutexLock lock(mutex_);
  if (!dead_) queue.ready.push_back(std::move(work));
}

TimerHandle SimDispatch::schedule(SimQueue& queue, Duration delay, Closure work) {
  class Handle final : public Timer {
   public:
    explicit Handle(std::weak_ptr<Shot> shot) : shot_(std::move(shot)) {}
    ~Handle() override {
      if (const auto shot = shot_.lock()) shot->take();
    }

   private:
    std::weak_ptr<Shot> shot_;
  };
  auto shot = std::make_shared<Shot>(std::move(work));
  auto handle = std::make_unique<Handle>(shot);
  MutexLock lock(mutex_);
  if (!dead_) timers_[{time_ + std::max(delay, Duration::zero()), nextTimer_++}] = {&queue, std::move(shot)};
  return handle;
}

void SimDispatch::promoteDueTimers() {
  MutexLock lock(mutex_);
  while (!timers_.empty() && timers_.begin()->first.first <= time_) {
    Waiting due = std::move(timers_.extract(timers_.begin()).mapped());
    if (due.shot->isCancelled()) continue;
    due.queue->ready.push_back([shot = std::move(due.shot)] {
      if (Closure work = shot->take()) work();
    });
  }
}

bool SimDispatch::jumpToNextTimer(Duration until) {
  MutexLock lock(mutex_);
  while (!timers_.empty() && timers_.begin()->second.shot->isCancelled()) timers_.erase(timers_.begin());
  if (timers_.empty() || timers_.begin()->first.first > until) return false;
  time_ = timers_.begin()->first.first;
  return true;
}

std::optional<std::pair<SimQueue*, Closure>> SimDispatch::takeReady() {
  MutexLock lock(mutex_);
  std::vector<SimQueue*> ready;
  std::ranges::copy_if(queues_, std::back_inserter(ready), [](SimQueue* queue) { return !queue->ready.empty(); });
  if (ready.empty()) return std::nullopt;
  SimQueue* queue = ready[tieBreak_.below(ready.size())];
  auto next = queue->ready.begin();
  if (queue->concurrency == Concurrency::concurrent) {
    next += static_cast<std::ptrdiff_t>(tieBreak_.below(queue->ready.size()));
  }
  std::pair<SimQueue*, Closure> taken(queue, std::move(*next));
  queue->ready.erase(next);
  return taken;
}

// ---- running

void SimDispatch::run(SimQueue& queue, Closure work) {
  running_.push_back(&queue);
  work();
  work = nullptr;  // what the closure owned is destroyed on its queue
  running_.pop_back();
}

bool SimDispatch::runOne() {
  promoteDueTimers();
  auto next = takeReady();
  if (!next) return false;
  run(*next->first, std::move(next->second));
  return true;
}

void SimDispatch::runUntilIdle() {
  QB_CHECK(std::this_thread::get_id() == thread_ && running_.empty());
  int closures = 0;
  while (runOne()) QB_CHECK(++closures < closuresPerInstant);
}

void SimDispatch::advance(Duration duration) {
  const Duration until = hostTime().toNanoseconds() + duration;
  runUntilIdle();
  while (jumpToNextTimer(until)) runUntilIdle();
  {
    MutexLock lock(mutex_);
    time_ = until;
  }
  runUntilIdle();
}

bool SimDispatch::runUntil(const std::function<bool()>& predicate, Duration limit) {
  QB_CHECK(std::this_thread::get_id() == thread_ && running_.empty());
  const Duration until = hostTime().toNanoseconds() + limit;
  int closures = 0;
  while (!predicate()) {
    if (runOne()) {
      QB_CHECK(++closures < closuresPerInstant);
    } else if (jumpToNextTimer(until)) {
      closures = 0;
    } else {
      MutexLock lock(mutex_);
      time_ = until;
      return false;
    }
  }
  return true;
}

bool SimDispatch::isIdle() const {
  MutexLock lock(mutex_);
  return std::ranges::all_of(queues_, [](const SimQueue* queue) { return queue->ready.empty(); }) &&
         std::ranges::all_of(timers_, [](const auto& timer) { return timer.second.shot->isCancelled(); });
}

bool SimDispatch::isRunning(const SimQueue& queue) const {
  if (std::this_thread::get_id() != thread_) return false;
  return running_.empty() ? &queue == main_.get() : running_.back() == &queue;
}

bool SimDispatch::isOnStack(const SimQueue& queue) const {
  return running_.empty() ? &queue == main_.get() : std::ranges::find(running_, &queue) != running_.end();
}

void SimDispatch::runSynchronously(SimQueue& queue, Closure work) {
  QB_CHECK(std::this_thread::get_id() == thread_);
  const bool concurrent = queue.concurrency == Concurrency::concurrent;
  QB_CHECK(concurrent || !isOnStack(queue));  // a real queue would wait for itself
  const bool fromTest = running_.empty();
  if (fromTest) running_.push_back(main_.get());
  std::deque<Closure> earlier;
  if (!concurrent) {
    MutexLock lock(mutex_);
    earlier.swap(queue.ready);
  }
  for (Closure& closure : earlier) run(queue, std::move(closure));
  run(queue, std::move(work));
  if (fromTest) running_.pop_back();
}

void SimDispatch::retire(SimQueue& queue) {
  QB_CHECK(running_.empty() || !isOnStack(queue));
  const auto hasWork = [&] {
    MutexLock lock(mutex_);
    return !queue.ready.empty();
  };
  while (hasWork()) runSynchronously(queue, [] {});
  std::vector<Waiting> dropped;  // outlives the lock: what its closures own may call back here
  MutexLock lock(mutex_);
  std::erase(queues_, &queue);
  std::erase_if(timers_, [&](auto& timer) {
    if (timer.second.queue != &queue) return false;
    dropped.push_back(std::move(timer.second));
    return true;
  });
}

void SimDispatch::kill() {
  std::vector<std::deque<Closure>> dropped;
  decltype(timers_) droppedTimers;
  MutexLock lock(mutex_);
  dead_ = true;
  for (SimQueue* queue : queues_) dropped.push_back(std::exchange(queue->ready, {}));
  droppedTimers.swap(timers_);
}

void SimDispatch::revive() {
  MutexLock lock(mutex_);
  dead_ = false;
}

}  // namespace quillbeam
