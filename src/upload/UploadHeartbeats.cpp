#include "upload/UploadHeartbeats.h"

#include "upload/SessionLogText.h"

namespace quillbeam {

namespace {

constexpr Duration heartbeatInterval = std::chrono::seconds(30);

}  // namespace

void UploadHeartbeats::startHeartbeat(const std::string& sessionId) {
  stopHeartbeat(sessionId);
  timers_[sessionId] =
      std::make_unique<RepeatingTimer>(main_, heartbeatInterval, [this, sessionId] { sendHeartbeat(sessionId); });
  logger_.info("Heartbeat started" + ofSession(sessionId));
}

void UploadHeartbeats::stopHeartbeat(const std::string& sessionId) {
  timers_.erase(sessionId);
  logger_.info("Heartbeat stopped" + ofSession(sessionId));
}

void UploadHeartbeats::stopAll() {
  timers_.clear();
  tasks_.cancelAll();
}

void UploadHeartbeats::sendHeartbeat(const std::string& sessionId) {
  const auto context = table_.find(sessionId);
  if (!context) return;
  const MacNativeUploadSession& session = context->session;
  auto pulse = apiClient_.pulseMultipartUpload(session.teamId, session.folderId, session.fileId);
  tasks_.start(std::move(pulse), [this, sessionId](const Result<void>& sent) {
    if (sent) {
      logger_.debug([&] { return "Heartbeat sent" + ofSession(sessionId); });
    } else {
      logger_.info("Heartbeat failed" + ofSession(sessionId) + ": " + sent.error().description());
    }
  });
}

}  // namespace quillbeam
