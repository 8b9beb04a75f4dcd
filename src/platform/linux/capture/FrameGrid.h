#pragma once

#include <cstdint>

#include "base/MediaTime.h"

namespace quillbeam {

/// The moments at which a screen may be looked at: whole multiples of an interval on the host clock. Laying the grid on
/// the clock's own zero keeps every tick an exact fraction, so that pictures are spaced to the last digit.
class FrameGrid {
 public:
  /// `interval` is positive.
  explicit FrameGrid(MediaTime interval) : interval_(interval) {}

  MediaTime interval() const { return interval_; }
  MediaTime at(std::int64_t tick) const { return {tick * interval_.value(), interval_.timescale()}; }
  /// The last tick at or before `time`.
  std::int64_t tickAt(MediaTime time) const;

 private:
  MediaTime interval_;
};

}  // namespace quillbeam
