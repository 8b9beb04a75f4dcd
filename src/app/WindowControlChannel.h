#pragma once

#include "channels/MethodChannel.h"
#include "platform/Logging.h"

namespace quillbeam {

class MainFlutterWindow;

/// "io.quillbeam.app/window_control": the UI layer shows and hides the main window and hears what becomes of it. Main
/// queue.
class WindowControlChannel {
 public:
  WindowControlChannel(BinaryMessenger& messenger, MainFlutterWindow& window, const Logger& logger);

  enum class Visibility { hidden, visible };
  void sendUpdateWindowVisibility(Visibility visibility);
  void sendDockIconClicked();

 private:
  void showWindow(Value arguments, MethodResult result);
  void hideWindow(Value arguments, MethodResult result);
  void updateWindowVisibility(Value arguments, MethodResult result);

  MainFlutterWindow& window_;
  const Logger& logger_;
  MethodChannel channel_;
};

}  // namespace quillbeam
