#pragma once

#include "base/Task.h"
#include "platform/Platform.h"
#include "upload/MacNativeApiClient.h"
#include "upload/MacNativeBackgroundUploadManager.h"
#include "upload/MacNativeUploadSessionStorage.h"

namespace quillbeam {

enum class ResumeUploads { yes, no };

/// What a launch does about uploads: goes on with those of former processes when a service is configured, removes the
/// records of old ones and the files that nobody owns. Main queue; the references outlive the task.
Task<void> launchUploads(Platform& platform, MacNativeApiClient& apiClient, MacNativeUploadSessionStorage& storage,
                         MacNativeBackgroundUploadManager& manager, ResumeUploads resume);

}  // namespace quillbeam
