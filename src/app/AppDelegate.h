#pragma once

#include <string>

#include "app/UploadLaunch.h"
#include "base/TaskScope.h"
#include "platform/Logging.h"
#include "platform/Platform.h"

namespace quillbeam {

class MainFlutterWindow;

/// The application as such: its launch, what the desktop asks of it, its notifications to the user. The process lives
/// on when no window is visible; closing the main window only hides it. Main queue.
class AppDelegate final : public ApplicationDelegate {
 public:
  AppDelegate(Platform& platform, LaunchedUploads uploads);
  ~AppDelegate() override;

  /// nullptr before it is made. It outlives this object.
  void setMainWindow(MainFlutterWindow* window) { mainWindow_ = window; }

  void applicationWillFinishLaunching();
  /// Goes on with uploads that a former process left, and cleans up after old ones, in the background.
  void applicationDidFinishLaunching(ResumeUploads resume);

  enum class Reopened { mainWindowShown, nothingToShow };
  /// The user started the application again or asked for it in another way.
  Reopened applicationShouldHandleReopen();
  Termination applicationShouldTerminateAfterLastWindowClosed() override;
  bool applicationSupportsSecureRestorableState() override;

  /// Shows the notification at once. Nobody waits for it; a failure is logged.
  void showNativeNotification(const std::string& title, const std::string& body);

 private:
  Platform& platform_;
  const LaunchedUploads uploads_;
  const Logger logger_;
  MainFlutterWindow* mainWindow_ = nullptr;
  TaskScope tasks_;
};

}  // namespace quillbeam
