#pragma once

#include "backup/StoredRecordings.h"
#include "platform/NotificationCenter.h"
#include "upload/MacNativeApiClient.h"
#include "upload/MacNativeBackgroundUploadManager.h"

namespace quillbeam {

/// What a recording needs to be uploaded while it runs.
struct RecordingUploads {
  MacNativeApiClient& apiClient;
  MacNativeBackgroundUploadManager& manager;
  StoredRecordings& storedRecordings;
  NotificationCenter& notifications;
};

}  // namespace quillbeam
