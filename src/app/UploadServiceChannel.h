#pragma once

#include "channels/MethodChannel.h"
#include "platform/Logging.h"

namespace quillbeam {

/// "io.quillbeam.app.upload_service": calls that the UI layer still makes and that need no work here. Main queue.
class UploadServiceChannel {
 public:
  UploadServiceChannel(BinaryMessenger& messenger, const Logger& logger);

 private:
  void resetRecordingTimer(Value arguments, MethodResult result);
  void uploadAudio(Value arguments, MethodResult result);

  const Logger& logger_;
  MethodChannel channel_;
};

}  // namespace quillbeam
