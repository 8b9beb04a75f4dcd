#include "platform/linux/curl/SuspendClock.h"

#include <ctime>

namespace quillbeam {

namespace {

Duration timeOf(clockid_t clock) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

}  // namespace

Duration KernelSuspendClock::timeSuspended() { return timeOf(CLOCK_BOOTTIME) - timeOf(CLOCK_MONOTONIC); }

}  // namespace quillbeam
