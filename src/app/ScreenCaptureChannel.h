#pragma once

#include "base/TaskScope.h"
#include "channels/MethodChannel.h"
#include "platform/Dispatch.h"
#include "platform/Logging.h"
#include "recording/MacRecorderManager.h"

namespace quillbeam {

/// "io.quillbeam.app.screen_capture": chooses what the next recordings capture. Main queue.
class ScreenCaptureChannel {
 public:
  ScreenCaptureChannel(BinaryMessenger& messenger, DispatchQueue& main, MacRecorderManager& manager,
                       const Logger& logger);

 private:
  void select(Value arguments, MethodResult result);

  MacRecorderManager& manager_;
  const Logger& logger_;
  MethodChannel channel_;
  TaskScope tasks_;
};

}  // namespace quillbeam
