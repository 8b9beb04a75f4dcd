#pragma once

#include <memory>

#include "app/AppDelegate.h"
#include "app/ApplicationChannel.h"
#include "app/FileUploadChannel.h"
#include "app/MacRecorderChannel.h"
#include "app/NativeNotificationChannel.h"
#include "app/NativeUploadConfigChannel.h"
#include "app/RecorderEventsChannel.h"
#include "app/RecordingRecoveryChannel.h"
#include "app/RecordingStatisticsChannel.h"
#include "app/ScreenCaptureChannel.h"
#include "app/UploadServiceChannel.h"
#include "app/WindowControlChannel.h"
#include "base/Weakly.h"
#include "channels/BinaryMessenger.h"
#include "platform/Logging.h"
#include "platform/NotificationCenter.h"
#include "platform/Platform.h"
#include "recording/MacRecorderManager.h"

namespace quillbeam {

/// The only meeting point between the UI layer and the services: opens every channel, one handler object each, and
/// keeps them for the life of the process, with or without something on the screen. Where the process has a display, it
/// is a window there as well, which a close only hides. Main queue.
class MainFlutterWindow : public WeaklyHeld, private MainWindow::Delegate {
 public:
  /// What the channels speak for.
  struct Services {
    AppDelegate& appDelegate;
    NotificationCenter& notifications;
    MacRecorderManager& recorder;
    MacNativeApiClient& apiClient;
    MacNativeUploadSessionStorage& uploadStorage;
    MacNativeBackgroundUploadManager& uploads;
    StoredRecordings& storedRecordings;
  };

  MainFlutterWindow(Platform& platform, BinaryMessenger& messenger, const Services& services);

  /// Whether there is a window to show; showing and hiding do nothing otherwise.
  bool isOnScreen() const { return window_ != nullptr; }
  /// Both soon, and the UI layer is told then.
  void show();
  void hide();
  /// What the window says about the UI layer.
  void setUserInterfaceState(UserInterfaceState state);
  WindowControlChannel& windowControl() { return *windowControl_; }

 private:
  void openWindow(WindowSystem& windowSystem);
  void windowCloseRequested() override;

  DispatchQueue& main_;
  Logger logger_;
  std::unique_ptr<MainWindow> window_;
  std::unique_ptr<UploadServiceChannel> uploadService_;
  std::unique_ptr<RecorderEventsChannel> recorderEvents_;
  std::unique_ptr<NativeNotificationChannel> nativeNotification_;
  std::unique_ptr<MacRecorderChannel> recorder_;
  std::unique_ptr<NativeUploadConfigChannel> uploadConfig_;
  std::unique_ptr<ScreenCaptureChannel> screenCapture_;
  std::unique_ptr<RecordingRecoveryChannel> recovery_;
  std::unique_ptr<RecordingStatisticsChannel> statistics_;
  std::unique_ptr<FileUploadChannel> fileUpload_;
  std::unique_ptr<ApplicationChannel> application_;
  std::unique_ptr<WindowControlChannel> windowControl_;
};

}  // namespace quillbeam
