#pragma once

#include "base/TaskScope.h"
#include "channels/MethodChannel.h"
#include "platform/Logging.h"
#include "upload/MacNativeApiClient.h"
#include "upload/MacNativeBackgroundUploadManager.h"
#include "upload/MacNativeUploadSessionStorage.h"

namespace quillbeam {

/// "io.quillbeam.app.native_upload_config": where the UI layer tells which service to upload to and asks after
/// uploads. Main queue.
class NativeUploadConfigChannel {
 public:
  NativeUploadConfigChannel(BinaryMessenger& messenger, DispatchQueue& main, MacNativeApiClient& apiClient,
                            MacNativeUploadSessionStorage& storage, MacNativeBackgroundUploadManager& manager,
                            const Logger& logger);

 private:
  void configure(Value arguments, MethodResult result);
  void updateToken(Value arguments, MethodResult result);
  void clear(Value arguments, MethodResult result);
  void isConfigured(Value arguments, MethodResult result);
  void incompleteSessions(Value arguments, MethodResult result);
  void resumeIncomplete(Value arguments, MethodResult result);
  void currentProgress(Value arguments, MethodResult result);
  void abortCurrent(Value arguments, MethodResult result);

  MacNativeApiClient& apiClient_;
  MacNativeUploadSessionStorage& storage_;
  MacNativeBackgroundUploadManager& manager_;
  const Logger& logger_;
  MethodChannel channel_;
  TaskScope tasks_;
};

}  // namespace quillbeam
