#include "platform/linux/posix/IoThread.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <array>
#include <cerrno>
#include <utility>

#include "base/Check.h"
#include "platform/linux/posix/SignalBlocker.h"

namespace quillbeam {

IoThread::IoThread() : epoll_(::epoll_create1(EPOLL_CLOEXEC)), wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  QB_CHECK(epoll_.isOpen() && wake_.isOpen());
  epoll_event event{.events = EPOLLIN, .data = {.fd = wake_.get()}};
  QB_CHECK(::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, wake_.get(), &event) == 0);
  const SignalBlocker blocked;
  thread_ = std::thread([this] { run(); });
}

IoThread::~IoThread() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  ::eventfd_write(wake_.get(), 1);
  thread_.join();
}

void IoThread::perform(Closure work) {
  std::lock_guard lock(mutex_);
  pending_.push_back(std::move(work));
  if (pending_.size() == 1) ::eventfd_write(wake_.get(), 1);
}

void IoThread::watch(int descriptor, std::uint32_t events, const std::shared_ptr<IoSource>& source) {
  epoll_event event{.events = events, .data = {.fd = descriptor}};
  const bool known = sources_.contains(descriptor);
  if (events == 0) {
    if (!known) return;
    ::epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, descriptor, nullptr);
    sources_.erase(descriptor);
  } else {
    ::epoll_ctl(epoll_.get(), known ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, descriptor, &event);
    sources_.insert_or_assign(descriptor, source);
  }
}

bool IoThread::runPending() {
  while (true) {
    std::deque<Closure> batch;
    {
      std::lock_guard lock(mutex_);
      if (pending_.empty()) return !stopping_;
      batch.swap(pending_);
    }
    for (Closure& work : batch) {
      work();
      work = nullptr;
    }
  }
}

void IoThread::run() {
  std::array<epoll_event, 32> events;
  while (runPending()) {
    const int count = ::epoll_wait(epoll_.get(), events.data(), events.size(), -1);
    QB_CHECK(count >= 0 || errno == EINTR);
    for (int index = 0; index < count; ++index) {
      const epoll_event& event = events[static_cast<std::size_t>(index)];
      ::eventfd_t ignored = 0;
      if (event.data.fd == wake_.get()) ::eventfd_read(wake_.get(), &ignored);
      // Looked up afresh: an earlier source of this round may have closed this one.
      const auto source = sources_.find(event.data.fd);
      if (source == sources_.end()) continue;
      const std::shared_ptr<IoSource> kept = source->second;
      kept->ready(event.events);
    }
  }
}

}  // namespace quillbeam
