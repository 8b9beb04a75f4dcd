#pragma once

#include "app/AppDelegate.h"
#include "channels/MethodChannel.h"

namespace quillbeam {

/// "io.quillbeam.app.application": how a second start of the program reaches the first. "reopen" (no arguments) brings
/// its main window to the front and answers whether there is one (bool). Main queue.
class ApplicationChannel {
 public:
  ApplicationChannel(BinaryMessenger& messenger, AppDelegate& appDelegate);

 private:
  void reopen(Value arguments, MethodResult result);

  AppDelegate& appDelegate_;
  MethodChannel channel_;
};

}  // namespace quillbeam
