#include "app/UploadLaunch.h"

#include <tuple>

namespace quillbeam {

namespace {

constexpr int keepEndedSessionsDays = 7;

}  // namespace

Task<void> launchUploads(Platform& platform, LaunchedUploads uploads, ResumeUploads resume) {
  const Logger logger(platform.systemLog, "io.quillbeam.app.macos", "AppDelegate");
  if (resume == ResumeUploads::yes && uploads.apiClient.isConfigured()) {
    logger.info("🔄 Native API configured - checking for incomplete upload sessions...");
    std::ignore = co_await uploads.manager.resumeIncompleteSessions();
  } else if (resume == ResumeUploads::yes) {
    logger.info("ℹ️ Native API not configured yet - will resume uploads when configured");
  }
  auto cleanUp = [storage = &uploads.storage, recordings = &uploads.storedRecordings]() -> Result<void> {
    storage->cleanupOldSessions(keepEndedSessionsDays);
    recordings->sweepLeftovers();
    return success;
  };
  CO_TRY_VOID(co_await runOn<void>(platform.dispatch.global(), cleanUp));
  co_return co_await uploads.manager.sweepLeftovers();
}

}  // namespace quillbeam
