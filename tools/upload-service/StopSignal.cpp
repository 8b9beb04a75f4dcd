#include "StopSignal.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace quillbeam::service {

StopSignal::StopSignal() : event_(::eventfd(0, EFD_CLOEXEC)) {
  if (event_ < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
}

StopSignal::~StopSignal() { ::close(event_); }

void StopSignal::raise() { ::eventfd_write(event_, 1); }

StopSignal::Event StopSignal::awaitReadable(int socket, std::chrono::milliseconds longest) const {
  pollfd waited[] = {{event_, POLLIN, 0}, {socket, POLLIN, 0}};  // poll skips a negative descriptor
  if (::poll(waited, 2, static_cast<int>(longest.count())) <= 0) return Event::timedOut;
  return waited[0].revents != 0 ? Event::stopped : Event::readable;
}

}  // namespace quillbeam::service
