#include "app/MainFlutterWindow.h"

namespace quillbeam {

MainFlutterWindow::MainFlutterWindow(Platform& platform, BinaryMessenger& messenger, const Services& services)
    : logger_(platform.systemLog, "io.quillbeam.app.macos", "MainFlutterWindow") {
  DispatchQueue& main = platform.dispatch.main();
  logger_.info("🔧 macOS: Setting up method channels in MainFlutterWindow...");
  uploadService_ = std::make_unique<UploadServiceChannel>(messenger, logger_);
  recorderEvents_ = std::make_unique<RecorderEventsChannel>(messenger, main, services.notifications, logger_);
  recorder_ = std::make_unique<MacRecorderChannel>(messenger, platform, services.recorder, *recorderEvents_, logger_);
  uploadConfig_ = std::make_unique<NativeUploadConfigChannel>(messenger, main, services.apiClient,
                                                              services.uploadStorage, services.uploads, logger_);
  screenCapture_ = std::make_unique<ScreenCaptureChannel>(messenger, main, services.recorder, logger_);
  recovery_ =
      std::make_unique<RecordingRecoveryChannel>(messenger, platform.dispatch, services.storedRecordings, logger_);
  statistics_ = std::make_unique<RecordingStatisticsChannel>(messenger, services.recorder);
  fileUpload_ = std::make_unique<FileUploadChannel>(messenger, platform, services.uploads, services.notifications);
  logger_.info("✅ macOS method channels initialized successfully in MainFlutterWindow");
}

}  // namespace quillbeam
