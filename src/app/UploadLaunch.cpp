#include "app/UploadLaunch.h"

#include <tuple>

namespace quillbeam {

namespace {

constexpr int keepEndedSessionsDays = 7;

}  // namespace

Task<void> launchUploads(Platform& platform, MacNativeApiClient& apiClient, MacNativeUploadSessionStorage& storage,
                         MacNativeBackgroundUploadManager& manager, ResumeUploads resume) {
  const Logger logger(platform.systemLog, "io.quillbeam.app.macos", "AppDelegate");
  if (resume == ResumeUploads::yes && apiClient.isConfigured()) {
    logger.info("🔄 Native API configured - checking for incomplete upload sessions...");
    std::ignore = co_await manager.resumeIncompleteSessions();
  } else if (resume == ResumeUploads::yes) {
    logger.info("ℹ️ Native API not configured yet - will resume uploads when configured");
  }
  auto cleanUp = [&storage]() -> Result<void> {
    storage.cleanupOldSessions(keepEndedSessionsDays);
    return success;
  };
  CO_TRY_VOID(co_await runOn<void>(platform.dispatch.global(), cleanUp));
  co_return co_await manager.sweepLeftovers();
}

}  // namespace quillbeam
