#include "upload/UploadVerification.h"

#include <utility>

#include "upload/SessionLogText.h"

namespace quillbeam {

namespace {

constexpr Duration period = std::chrono::seconds(10);
constexpr int mostPasses = 8;
constexpr int firstPassThatCancels = 3;

std::string countsText(const MacNativeUploadSession& session) {
  return "uploaded=" + std::to_string(session.uploadedParts.size()) +
         ", pending=" + std::to_string(session.pendingParts.size()) +
         ", failed=" + std::to_string(session.failedParts.size()) +
         ", expected=" + std::to_string(session.totalPartsExpected.value_or(0));
}

std::string listText(const std::vector<int>& parts) {
  std::string text = "[";
  for (const int part : parts) text += (text.size() > 1 ? ", " : "") + std::to_string(part);
  return text + "]";
}

}  // namespace

void UploadVerification::startUploadCompletionVerification(const std::string& sessionId) {
  stopUploadCompletionVerification(sessionId);
  verifications_[sessionId].timer = std::make_unique<RepeatingTimer>(
      neighbours_.main, period, [this, sessionId] { verifyUploadCompletion(sessionId); });
  neighbours_.logger.info("🔍 Started upload completion verification" + ofSession(sessionId));
}

void UploadVerification::stopUploadCompletionVerification(const std::string& sessionId) {
  verifications_.erase(sessionId);
}

void UploadVerification::verifyUploadCompletion(const std::string& sessionId) {
  const auto context = neighbours_.table.find(sessionId);
  const bool isUnderWay =
      context && context->session.isIncomplete() && context->session.state != MacUploadSessionState::completing;
  if (!isUnderWay) return stopUploadCompletionVerification(sessionId);
  Verification& verification = verifications_[sessionId];
  const int attempt = ++verification.attempts;
  neighbours_.logger.info("🔍 Verification attempt " + std::to_string(attempt) + "/" + std::to_string(mostPasses) +
                          ofSession(sessionId) + ": " + countsText(context->session));
  examine(sessionId, attempt, verification.bytesSent);
  neighbours_.retryIdleParts(sessionId);
  if (attempt < mostPasses) return;
  neighbours_.logger.info("⚠️ Upload verification exhausted after " + std::to_string(attempt) + " attempts" +
                          ofSession(sessionId));
  stopUploadCompletionVerification(sessionId);
}

void UploadVerification::examine(const std::string& sessionId, int attempt, const BytesSent& before) {
  neighbours_.backgroundSession.listTasks([this, sessionId, attempt, before](const std::vector<UploadTaskInfo>& tasks) {
    judge(sessionId, attempt, before, tasks);
  });
}

void UploadVerification::judge(const std::string& sessionId, int attempt, const BytesSent& before,
                               const std::vector<UploadTaskInfo>& tasks) {
  const auto ours = neighbours_.taskMap.tasksOf(sessionId);
  BytesSent now;
  for (const UploadTaskInfo& task : tasks) {
    if (task.state == UploadTaskState::running && ours.contains(task.id)) now[task.id] = task.bytesSent;
  }
  restartStuckParts(sessionId);
  if (attempt >= firstPassThatCancels) cancelStuckTasks(sessionId, before, now);
  neighbours_.main.async(weakly(this, [sessionId, now](UploadVerification& self) {
    const auto verification = self.verifications_.find(sessionId);
    if (verification != self.verifications_.end()) verification->second.bytesSent = now;
  }));
}

void UploadVerification::restartStuckParts(const std::string& sessionId) {
  const auto context = neighbours_.table.find(sessionId);
  if (!context) return;
  // The map rather than the listing says what is under way: it also knows transfers begun since the question.
  const auto active = neighbours_.taskMap.partsOf(sessionId);
  std::vector<int> stuck = context->session.pendingParts;
  std::erase_if(stuck, [&](int part) { return active.contains(part); });
  if (stuck.empty()) return;
  neighbours_.logger.error("⚠️ Found " + std::to_string(stuck.size()) +
                           " stuck part(s) with no active task: " + listText(stuck) + ofSession(sessionId));
  neighbours_.main.async(weakly(this, [sessionId, stuck](UploadVerification& self) {
    for (const int part : stuck) self.neighbours_.retryPart(part, sessionId);
  }));
}

void UploadVerification::cancelStuckTasks(const std::string& sessionId, const BytesSent& before, const BytesSent& now) {
  std::vector<UploadTaskId> stuck;
  for (const auto& [task, bytes] : now) {
    const auto earlier = before.find(task);
    if (earlier != before.end() && earlier->second == bytes) stuck.push_back(task);
  }
  if (stuck.empty()) return;
  neighbours_.logger.info("⚠️ Cancelling " + std::to_string(stuck.size()) + " potentially stuck task(s)" +
                          ofSession(sessionId));
  for (const UploadTaskId task : stuck) neighbours_.backgroundSession.cancel(task);
}

}  // namespace quillbeam
