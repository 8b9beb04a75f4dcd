#pragma once

#include <memory>

#include "app/FileUploadChannel.h"
#include "app/MacRecorderChannel.h"
#include "app/NativeUploadConfigChannel.h"
#include "app/RecorderEventsChannel.h"
#include "app/RecordingRecoveryChannel.h"
#include "app/RecordingStatisticsChannel.h"
#include "app/ScreenCaptureChannel.h"
#include "app/UploadServiceChannel.h"
#include "channels/BinaryMessenger.h"
#include "platform/Logging.h"
#include "platform/NotificationCenter.h"
#include "platform/Platform.h"
#include "recording/MacRecorderManager.h"

namespace quillbeam {

/// The only meeting point between the UI layer and the services: opens every channel, one handler object each, and
/// keeps them for the life of the process. Main queue.
class MainFlutterWindow {
 public:
  /// What the channels speak for.
  struct Services {
    NotificationCenter& notifications;
    MacRecorderManager& recorder;
    MacNativeApiClient& apiClient;
    MacNativeUploadSessionStorage& uploadStorage;
    MacNativeBackgroundUploadManager& uploads;
    StoredRecordings& storedRecordings;
  };

  MainFlutterWindow(Platform& platform, BinaryMessenger& messenger, const Services& services);

 private:
  Logger logger_;
  std::unique_ptr<UploadServiceChannel> uploadService_;
  std::unique_ptr<RecorderEventsChannel> recorderEvents_;
  std::unique_ptr<MacRecorderChannel> recorder_;
  std::unique_ptr<NativeUploadConfigChannel> uploadConfig_;
  std::unique_ptr<ScreenCaptureChannel> screenCapture_;
  std::unique_ptr<RecordingRecoveryChannel> recovery_;
  std::unique_ptr<RecordingStatisticsChannel> statistics_;
  std::unique_ptr<FileUploadChannel> fileUpload_;
};

}  // namespace quillbeam
