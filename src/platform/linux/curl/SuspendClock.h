#pragma once

#include "platform/Dispatch.h"

namespace quillbeam {

/// How long the machine has slept.
class SuspendClock {
 public:
  virtual ~SuspendClock() = default;
  /// Since it was started; only differences mean something. On the network's thread.
  virtual Duration timeSuspended() = 0;
};

/// What the clock that runs during sleep is ahead of the one that does not.
class KernelSuspendClock final : public SuspendClock {
 public:
  Duration timeSuspended() override;
};

}  // namespace quillbeam
