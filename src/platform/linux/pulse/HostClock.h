#pragma once

#include <cstdint>
#include <ctime>

namespace quillbeam {

/// The clock that stamps captured media, in nanoseconds.
inline std::int64_t hostClockNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1'000'000'000LL + now.tv_nsec;
}

}  // namespace quillbeam
