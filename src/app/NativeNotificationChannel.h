#pragma once

#include "app/AppDelegate.h"
#include "channels/MethodChannel.h"
#include "platform/Logging.h"

namespace quillbeam {

/// "io.quillbeam.app.native_notification": messages of the UI layer to the user, shown by the desktop. Main queue.
class NativeNotificationChannel {
 public:
  NativeNotificationChannel(BinaryMessenger& messenger, AppDelegate& appDelegate, const Logger& logger);

 private:
  void showNotification(Value arguments, MethodResult result);

  AppDelegate& appDelegate_;
  MethodChannel channel_;
};

}  // namespace quillbeam
