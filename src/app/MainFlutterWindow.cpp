#include "app/MainFlutterWindow.h"

namespace quillbeam {

MainFlutterWindow::MainFlutterWindow(Platform& platform, BinaryMessenger& messenger, NotificationCenter& notifications,
                                     MacRecorderManager& manager)
    : logger_(platform.systemLog, "io.quillbeam.app.macos", "MainFlutterWindow") {
  DispatchQueue& main = platform.dispatch.main();
  logger_.info("🔧 macOS: Setting up method channels in MainFlutterWindow...");
  uploadService_ = std::make_unique<UploadServiceChannel>(messenger, logger_);
  recorderEvents_ = std::make_unique<RecorderEventsChannel>(messenger, main, notifications, logger_);
  recorder_ = std::make_unique<MacRecorderChannel>(messenger, platform, manager, *recorderEvents_, logger_);
  screenCapture_ = std::make_unique<ScreenCaptureChannel>(messenger, main, manager, logger_);
  statistics_ = std::make_unique<RecordingStatisticsChannel>(messenger, manager);
  logger_.info("✅ macOS method channels initialized successfully in MainFlutterWindow");
}

}  // namespace quillbeam
