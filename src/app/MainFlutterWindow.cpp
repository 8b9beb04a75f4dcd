#include "app/MainFlutterWindow.h"

namespace quillbeam {

MainFlutterWindow::MainFlutterWindow(Platform& platform, BinaryMessenger& messenger, const Services& services)
    : main_(platform.dispatch.main()), logger_(platform.systemLog, "io.quillbeam.app.macos", "MainFlutterWindow") {
  logger_.info("🔧 macOS: Setting up method channels in MainFlutterWindow...");
  uploadService_ = std::make_unique<UploadServiceChannel>(messenger, logger_);
  nativeNotification_ = std::make_unique<NativeNotificationChannel>(messenger, services.appDelegate, logger_);
  recorderEvents_ = std::make_unique<RecorderEventsChannel>(messenger, main_, services.notifications, logger_);
  recorder_ = std::make_unique<MacRecorderChannel>(messenger, platform, services.recorder, *recorderEvents_, logger_);
  uploadConfig_ = std::make_unique<NativeUploadConfigChannel>(messenger, main_, services.apiClient,
                                                              services.uploadStorage, services.uploads, logger_);
  screenCapture_ = std::make_unique<ScreenCaptureChannel>(messenger, main_, services.recorder, logger_);
  recovery_ =
      std::make_unique<RecordingRecoveryChannel>(messenger, platform.dispatch, services.storedRecordings, logger_);
  statistics_ = std::make_unique<RecordingStatisticsChannel>(messenger, services.recorder);
  fileUpload_ = std::make_unique<FileUploadChannel>(messenger, platform, services.uploads, services.notifications);
  application_ = std::make_unique<ApplicationChannel>(messenger, services.appDelegate);
  logger_.info("✅ macOS method channels initialized successfully in MainFlutterWindow");
  logger_.info("🔧 Setting up window control method channel...");
  windowControl_ = std::make_unique<WindowControlChannel>(messenger, *this, logger_);
  logger_.info("✅ Window control method channel set up successfully");
  openWindow(platform.windowSystem);
}

void MainFlutterWindow::openWindow(WindowSystem& windowSystem) {
  auto window = windowSystem.makeMainWindow(*this);
  if (window) {
    window_ = *std::move(window);
  } else if (!window.error().is(WindowSystemError::noDisplay)) {
    logger_.error("No main window: " + window.error().fullDescription());
  }
}

void MainFlutterWindow::show() {
  main_.async(weakly(this, [](MainFlutterWindow& self) {
    if (!self.window_) return;
    self.window_->makeKeyAndOrderFront();
    self.windowControl_->sendUpdateWindowVisibility(WindowControlChannel::Visibility::visible);
  }));
}

void MainFlutterWindow::hide() {
  main_.async(weakly(this, [](MainFlutterWindow& self) {
    if (!self.window_) return;
    self.window_->orderOut();
    self.windowControl_->sendUpdateWindowVisibility(WindowControlChannel::Visibility::hidden);
  }));
}

void MainFlutterWindow::setUserInterfaceState(UserInterfaceState state) {
  if (window_) window_->setUserInterfaceState(state);
}

void MainFlutterWindow::windowCloseRequested() {
  logger_.info("🏠 Window performClose requested - hiding window instead of quitting app");
  hide();
  windowControl_->sendUpdateWindowVisibility(WindowControlChannel::Visibility::hidden);
}

}  // namespace quillbeam
