#pragma once

#include "backup/StoredRecordings.h"
#include "base/Task.h"
#include "platform/Platform.h"
#include "upload/MacNativeApiClient.h"
#include "upload/MacNativeBackgroundUploadManager.h"
#include "upload/MacNativeUploadSessionStorage.h"

namespace quillbeam {

enum class ResumeUploads { yes, no };

/// The services that a launch puts to work; they outlive what it starts.
struct LaunchedUploads {
  MacNativeApiClient& apiClient;
  MacNativeUploadSessionStorage& storage;
  MacNativeBackgroundUploadManager& manager;
  StoredRecordings& storedRecordings;
};

/// What a launch does about uploads: goes on with those of former processes when a service is configured, removes the
/// records of old ones and the files and backups that nobody can use. Main queue.
Task<void> launchUploads(Platform& platform, LaunchedUploads uploads, ResumeUploads resume);

}  // namespace quillbeam
