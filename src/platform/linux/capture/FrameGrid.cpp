#include "platform/linux/capture/FrameGrid.h"

namespace quillbeam {

std::int64_t FrameGrid::tickAt(MediaTime time) const {
  // Nanoseconds since the host started times a time scale leave 64 bits after hours.
  const auto numerator = static_cast<__int128>(time.value()) * interval_.timescale();
  const auto denominator = static_cast<__int128>(interval_.value()) * time.timescale();
  const auto quotient = numerator / denominator;
  return static_cast<std::int64_t>(numerator % denominator < 0 ? quotient - 1 : quotient);
}

}  // namespace quillbeam
