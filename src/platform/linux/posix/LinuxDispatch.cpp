#include "platform/linux/posix/LinuxDispatch.h"

#include <algorithm>
#include <string>
#include <utility>

namespace quillbeam {

namespace {

/// A delayed closure: its queue takes it to run it, or its handle to destroy it, whoever comes first.
class Shot {
 public:
  explicit Shot(Closure work) : work_(std::move(work)) {}
  Closure take() {
    std::lock_guard lock(mutex_);
    return std::exchange(work_, {});
  }

 private:
  std::mutex mutex_;
  Closure work_;
};

class LinuxTimer final : public Timer {
 public:
  LinuxTimer(TimerThread& timers, TimerThread::Id id, std::shared_ptr<Shot> shot)
      : timers_(timers), id_(id), shot_(std::move(shot)) {}
  ~LinuxTimer() override {
    timers_.cancel(id_);
    shot_->take();
  }

 private:
  TimerThread& timers_;
  TimerThread::Id id_;
  std::shared_ptr<Shot> shot_;
};

class LinuxQueue final : public DispatchQueue {
 public:
  LinuxQueue(TimerThread& timers, std::string_view label, std::shared_ptr<QueueCore> core)
      : timers_(timers), label_(label), core_(std::move(core)) {}
  ~LinuxQueue() override { core_->close(); }

  void async(Closure work) override { core_->enqueue(std::move(work)); }
  void sync(Closure work) override { core_->runAndWait(std::move(work)); }
  bool isCurrent() const override { return core_->isCurrent(); }
  std::string_view label() const override { return label_; }

  TimerHandle after(Duration delay, Closure work) override {
    auto shot = std::make_shared<Shot>(std::move(work));
    const auto due = TimerThread::Clock::now() + std::max(delay, Duration::zero());
    const auto id = timers_.schedule(due, [core = std::weak_ptr(core_), shot] {
      const auto queue = core.lock();
      if (!queue) return;
      queue->enqueue([shot] {
        if (Closure due = shot->take()) due();
      });
    });
    return std::make_unique<LinuxTimer>(timers_, id, std::move(shot));
  }

 private:
  TimerThread& timers_;
  std::string label_;
  std::shared_ptr<QueueCore> core_;
};

}  // namespace

LinuxDispatch::LinuxDispatch()
    : pool_(timers_),
      mainCore_(std::make_shared<MainCore>()),
      main_(std::make_unique<LinuxQueue>(timers_, "main", mainCore_)),
      global_(std::make_unique<LinuxQueue>(timers_, "global", std::make_shared<ConcurrentCore>(pool_))) {}

// Timers first (they ask the pool for threads), then the threads, then what waits, while all that closures and what
// they own may call still exists.
LinuxDispatch::~LinuxDispatch() {
  timers_.stop();
  pool_.stop();
  mainCore_->close();
}

DispatchQueue& LinuxDispatch::main() { return *main_; }
DispatchQueue& LinuxDispatch::global() { return *global_; }

std::unique_ptr<DispatchQueue> LinuxDispatch::makeSerialQueue(std::string_view label) {
  return std::make_unique<LinuxQueue>(timers_, label, std::make_shared<SerialCore>(pool_));
}

MediaTime LinuxDispatch::hostTime() const { return MediaTime::from(TimerThread::Clock::now().time_since_epoch()); }

Date LinuxDispatch::now() const {
  return std::chrono::floor<std::chrono::microseconds>(std::chrono::system_clock::now());
}

void LinuxDispatch::runMain() {
  while (!stopMain_.exchange(false)) {
    mainCore_->waitUntilReady();
    mainCore_->drain();
  }
}

void LinuxDispatch::stopMain() {
  stopMain_ = true;
  mainCore_->enqueue([] {});
}

void LinuxDispatch::drainMain() { mainCore_->drain(); }

}  // namespace quillbeam
