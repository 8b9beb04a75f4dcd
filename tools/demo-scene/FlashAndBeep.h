#pragma once

#include <atomic>
#include <thread>

#include "SceneWindow.h"

namespace quillbeam::demo {

/// A black screen that turns white for 100 ms each second, at the moment when the sound server lets a beep of 1 kHz be
/// heard. The events lie at changing places between two pictures of a recording, so that their mean is fair.
class FlashAndBeep {
 public:
  explicit FlashAndBeep(SceneWindow& window) : window_(window) {}

  /// Until `stop` becomes true. False without a sound server.
  bool run(const std::atomic<bool>& stop);

 private:
  void beep(const std::atomic<bool>& stop);
  void flash();

  SceneWindow& window_;
  std::atomic<std::int64_t> heardAt_ = 0;  ///< nanoseconds on the steady clock; 0: no beep under way
  std::atomic<bool> failed_ = false;
};

}  // namespace quillbeam::demo
