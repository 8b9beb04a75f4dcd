#pragma once

#include <cstdint>

#include "base/Result.h"
#include "platform/linux/x11/RowRange.h"
#include "platform/linux/x11/X11Connection.h"
#include "platform/linux/x11/X11Displays.h"

namespace quillbeam {

/// Which rows of a display were drawn on since they were last collected. Without the server's help (no DAMAGE or
/// XFixes) all rows count as drawn on, always. The connection outlives the tracker.
class DamageTracker {
 public:
  explicit DamageTracker(X11Connection& connection);
  ~DamageTracker();
  DamageTracker(const DamageTracker&) = delete;
  DamageTracker& operator=(const DamageTracker&) = delete;

  /// Notes an event if it is one of damage.
  void handle(const xcb_generic_event_t& event);
  /// The rows drawn on since the call before, empty when there are none; what is drawn from now on belongs to the next
  /// call, so pixels read afterwards are never older than the answer. `ScreenCaptureError::connectionLost`.
  Result<RowRange> collect(const DisplayArea& area);

 private:
  bool isTracking() const { return damage_ != 0; }

  X11Connection& connection_;
  std::uint32_t damage_ = 0;
  std::uint32_t region_ = 0;
  bool reported_ = false;
};

}  // namespace quillbeam
