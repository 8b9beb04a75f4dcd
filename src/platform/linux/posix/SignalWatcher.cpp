#include "platform/linux/posix/SignalWatcher.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <utility>

#include "base/Check.h"
#include "platform/linux/posix/SignalBlocker.h"

namespace quillbeam {

SignalWatcher::SignalWatcher() : stop_(::eventfd(0, EFD_CLOEXEC)) {
  sigset_t watched;
  sigemptyset(&watched);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&watched, signal);
  pthread_sigmask(SIG_BLOCK, &watched, &before_);
  signals_ = FileDescriptor(::signalfd(-1, &watched, SFD_CLOEXEC | SFD_NONBLOCK));
  QB_CHECK(signals_.isOpen() && stop_.isOpen());
}

SignalWatcher::~SignalWatcher() {
  ::eventfd_write(stop_.get(), 1);
  if (thread_.joinable()) thread_.join();
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

void SignalWatcher::deliver(DispatchQueue& main, Received received) {
  QB_CHECK(!thread_.joinable());
  const SignalBlocker blocked;
  thread_ = std::thread([this, &main, shared = std::make_shared<Received>(std::move(received))] {
    std::array<pollfd, 2> waits{
        {{.fd = signals_.get(), .events = POLLIN, .revents = 0}, {.fd = stop_.get(), .events = POLLIN, .revents = 0}}};
    while (true) {
      ::poll(waits.data(), waits.size(), -1);
      if (waits[1].revents != 0) return;
      signalfd_siginfo info{};
      if (::read(signals_.get(), &info, sizeof info) != sizeof info) continue;
      main.async([shared, signal = static_cast<int>(info.ssi_signo)] { (*shared)(signal); });
    }
  });
}

}  // namespace quillbeam
