#pragma once

#include <functional>
#include <utility>

#include "platform/Dispatch.h"

namespace quillbeam {

/// Runs `tick` on its queue every `period`, for the first time one period after it was made, until it is destroyed. To
/// be made and destroyed on that queue; its own tick may destroy it.
class RepeatingTimer {
 public:
  RepeatingTimer(DispatchQueue& queue, Duration period, std::function<void()> tick)
      : queue_(queue), period_(period), tick_(std::move(tick)) {
    arm();
  }

 private:
  void arm() {
    next_ = queue_.after(period_, [this] {
      const auto tick = tick_;
      arm();
      tick();
    });
  }

  DispatchQueue& queue_;
  const Duration period_;
  const std::function<void()> tick_;
  TimerHandle next_;
};

}  // namespace quillbeam
