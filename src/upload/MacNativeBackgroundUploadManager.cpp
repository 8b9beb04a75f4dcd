#include "upload/MacNativeBackgroundUploadManager.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "base/Text.h"
#include "upload/SessionLogText.h"

namespace quillbeam {

namespace {

using namespace std::chrono_literals;
using State = MacUploadSessionState;
using Change = UploadSessionTable::Change;

constexpr Duration finalizationTimeout = 120s;

std::string orNone(const std::optional<std::string>& text) { return text.value_or("none"); }

double progressOf(const MacNativeUploadSession& session) {
  const int expected = session.totalPartsExpected.value_or(0);
  return expected < 1 ? 0 : static_cast<double>(session.uploadedParts.size()) / expected;
}

bool isNotFound(const Error& error) { return httpStatus(error) == 404; }

}  // namespace

MacNativeBackgroundUploadManager::MacNativeBackgroundUploadManager(Platform& platform, MacNativeApiClient& apiClient,
                                                                   MacNativeUploadSessionStorage& storage,
                                                                   NotificationCenter& notifications)
    : platform_(platform),
      main_(platform.dispatch.main()),
      logger_(platform.systemLog, "io.quillbeam.app.macos", "MacNativeBackgroundUploadManager"),
      apiClient_(apiClient),
      sessionStorage_(storage),
      notifications_(notifications),
      partFiles_(platform, logger_),
      sessions_(platform.dispatch, storage),
      finalizationWaits_(platform.dispatch),
      transfers_(platform, logger_, sessions_, partFiles_, *this),
      heartbeats_(main_, logger_, apiClient, sessions_),
      tasks_(main_) {}

MacNativeBackgroundUploadManager::~MacNativeBackgroundUploadManager() {
  // What it tells us uses everything else.
  transfers_.end();
}

void MacNativeBackgroundUploadManager::onMain(std::function<void(MacNativeBackgroundUploadManager& self)> work) {
  main_.async(weakly(this, [work = std::move(work)](MacNativeBackgroundUploadManager& self) {
    if (!self.isEnding_) work(self);
  }));
}

template <class Tell>
void MacNativeBackgroundUploadManager::tellDelegate(Tell tell) {
  std::shared_ptr<MacNativeBackgroundUploadDelegate> delegate;
  {
    MutexLock lock(delegateMutex_);
    delegate = delegate_.lock();
  }
  if (delegate) tell(*delegate);
}

void MacNativeBackgroundUploadManager::setDelegate(std::weak_ptr<MacNativeBackgroundUploadDelegate> delegate) {
  MutexLock lock(delegateMutex_);
  delegate_ = std::move(delegate);
}

void MacNativeBackgroundUploadManager::setBackgroundCompletionHandler(Closure handler) {
  backgroundCompletionHandler_ = std::move(handler);
}

// Starting a session

Task<MacNativeUploadSession> MacNativeBackgroundUploadManager::startSession(UploadRequest request) {
  logger_.info("Starting new native upload session for: " + request.fileName +
               " (source: " + sourceText(request.source) + ", backupPath: " + orNone(request.localBackupPath) +
               ", segmentBackupId: " + orNone(request.segmentBackupId) + ", tempFileId: " + orNone(request.tempFileId) +
               ")");
  if (const int ended = sessions_.removeEnded(); ended > 0) {
    logger_.info("Cleaned up " + std::to_string(ended) + " completed/failed session(s)");
  }
  CO_TRY(auto answer, co_await apiClient_.initializeMultipartUpload(request.teamId, request.folderId,
                                                                    request.contentType, sourceText(request.source)));
  if (isEnding_) co_return MacBackgroundUploadError::sessionInterrupted;
  const MacNativeUploadSession session = makeSession(request, std::move(answer));
  sessions_.insert(makeContext(session));
  sessionStorage_.saveSession(session);
  // Part files will be named after the record: it is on disk before the first of them.
  CO_TRY_VOID(co_await sessionStorage_.flushed());
  // Stopped meanwhile.
  if (!sessions_.find(session.id)) co_return MacBackgroundUploadError::sessionInterrupted;
  heartbeats_.startHeartbeat(session.id);
  logger_.info("Native upload session started - fileId: " + session.fileId + ", uploadId: " + session.uploadId);
  announceReady(session, request);
  co_return session;
}

MacNativeUploadSession MacNativeBackgroundUploadManager::makeSession(const UploadRequest& request,
                                                                     MacNativeApiClient::InitResponse answer) {
  return {.id = platform_.random.uuid().string(),
          .uploadId = std::move(answer.uploadId),
          .fileId = std::move(answer.fileId),
          .teamId = request.teamId,
          .folderId = request.folderId,
          .fileName = request.fileName,
          .contentType = request.contentType,
          .createdAt = now(),
          .lastModifiedAt = now()};
}

SessionContext MacNativeBackgroundUploadManager::makeContext(MacNativeUploadSession session) {
  auto urlManager = std::make_shared<MacPresignedUrlManager>(platform_, apiClient_);
  urlManager->configure(session.identity(), session.contentType);
  return {std::move(session), std::move(urlManager)};
}

void MacNativeBackgroundUploadManager::announceReady(const MacNativeUploadSession& session,
                                                     const UploadRequest& request) {
  ValueMap userInfo{{"event", "sessionReady"},
                    {"fileId", session.fileId},
                    {"fileName", session.fileName},
                    {"teamId", session.teamId},
                    {"folderId", session.folderId}};
  if (request.localBackupPath) userInfo.set("localBackupPath", *request.localBackupPath);
  if (request.segmentBackupId) userInfo.set("segmentBackupId", *request.segmentBackupId);
  if (request.tempFileId) userInfo.set("tempFileId", *request.tempFileId);
  notifications_.post("macRecordingEntryUpdate", userInfo);
  logger_.info("📤 Posted 'sessionReady' notification for fileId: " + session.fileId +
               ", tempFileId: " + request.tempFileId.value_or("nil"));
}

// Parts on their way

Task<void> MacNativeBackgroundUploadManager::uploadChunk(PartContent data, int partNumber,
                                                         std::optional<std::string> sessionId) {
  auto context = sessions_.find(sessionId);
  if (!context) co_return MacBackgroundUploadError::noActiveSession;
  co_return co_await transfers_.upload(*std::move(context), partNumber, std::move(data));
}

void MacNativeBackgroundUploadManager::partWasConfirmed(const MacNativeUploadSession& session, int partNumber) {
  tellDelegate([&](auto& delegate) { delegate.uploadDidConfirmPart(session, partNumber); });
  const ValueMap userInfo{{"progress", progressOf(session)}, {"partNumber", partNumber}, {"fileId", session.fileId}};
  onMain([userInfo](auto& self) { self.notifications_.post("macUploadProgressUpdated", userInfo); });
  checkAndFinalizeIfComplete(session.id);
}

void MacNativeBackgroundUploadManager::partHasFailed(const MacNativeUploadSession& session, int partNumber,
                                                     const Error& error) {
  tellDelegate([&](auto& delegate) { delegate.uploadPartDidFail(session, partNumber, error); });
}

void MacNativeBackgroundUploadManager::transfersHaveSettled() {
  onMain([](auto& self) {
    if (Closure handler = std::exchange(self.backgroundCompletionHandler_, {})) handler();
  });
}

// The end of an upload

void MacNativeBackgroundUploadManager::markRecordingComplete(int totalParts,
                                                             const std::optional<std::string>& sessionId,
                                                             Finalized completion) {
  main_.assertCurrent();
  const auto context = sessions_.find(sessionId);
  if (!context) {
    if (completion) completion(MacBackgroundUploadError::noActiveSession);
    return;
  }
  const SessionId& id = context->session.id;
  if (completion) waitForFinalization(id, std::move(completion));
  sessions_.mutateSession(id, [&](MacNativeUploadSession& live) {
    live.totalPartsExpected = totalParts;
    live.lastModifiedAt = now();
    return Change::made;
  });
  logger_.info("Recording complete - expecting " + std::to_string(totalParts) + " total parts" + ofSession(id));
  transfers_.startVerification(id);
  checkAndFinalizeIfComplete(id);
}

void MacNativeBackgroundUploadManager::waitForFinalization(const SessionId& sessionId, Finalized completion) {
  finalizationWaits_.finish(sessionId, MacBackgroundUploadError::sessionInterrupted);  // one that asked before
  finalizationWaits_.insert(sessionId, std::move(completion));
  finalizationTimeouts_[sessionId] =
      main_.after(finalizationTimeout, [this, sessionId] { finalizationTimedOut(sessionId); });
}

void MacNativeBackgroundUploadManager::finalizationTimedOut(const SessionId& sessionId) {
  auto completion = finalizationWaits_.take(sessionId);
  if (!completion) return;
  logger_.info("⚠️ Finalization timeout after 120s" + ofSession(sessionId));
  transfers_.stopVerification(sessionId);
  (*completion)(MacBackgroundUploadError::finalizationTimeout);
}

void MacNativeBackgroundUploadManager::checkAndFinalizeIfComplete(const SessionId& sessionId) {
  bool isComplete = false;
  const auto session = sessions_.mutateSession(sessionId, [&](MacNativeUploadSession& live) {
    isComplete = live.isReadyToFinalize();
    if (!isComplete) return Change::none;
    live.state = State::completing;
    live.lastModifiedAt = now();
    return Change::made;
  });
  if (!isComplete) return;
  onMain([session = *session](auto& self) {
    self.transfers_.stopVerification(session.id);
    self.tasks_.start(self.finalizeSession(session));
  });
}

Task<void> MacNativeBackgroundUploadManager::finalizeSession(MacNativeUploadSession session) {
  logger_.info("Finalizing upload session: " + shortSessionId(session.id));
  heartbeats_.stopHeartbeat(session.id);
  auto finalized =
      co_await apiClient_.finalizeMultipartUpload(session.identity(), session.fileName, session.contentType);
  if (finalized) co_return co_await didFinalize(std::move(session));
  co_return co_await didFailToFinalize(std::move(session), std::move(finalized).error());
}

Task<void> MacNativeBackgroundUploadManager::didFinalize(MacNativeUploadSession session) {
  sessions_.mutateSession(session.id, [&](MacNativeUploadSession& live) {
    live.state = State::completed;
    live.lastModifiedAt = now();
    session = live;
    return Change::made;
  });
  partFiles_.cleanupTempFiles(session.id);
  sessions_.remove(session.id);
  // Nobody hears of a completed upload that the record on disk does not know.
  CO_TRY_VOID(co_await sessionStorage_.flushed());
  logger_.info("✅ Upload session finalized successfully" + ofSession(session.id));
  tellDelegate([&](auto& delegate) { delegate.uploadDidComplete(session); });
  finalizationWaits_.finish(session.id, success);
  finalizationTimeouts_.erase(session.id);
  logger_.info("📤 Posting macUploadCompleted notification for fileId: " + session.fileId);
  notifications_.post("macUploadCompleted", {{"sessionId", session.id}, {"fileId", session.fileId}});
  co_return success;
}

Task<void> MacNativeBackgroundUploadManager::didFailToFinalize(MacNativeUploadSession session, Error error) {
  logger_.error("❌ Failed to finalize session: " + error.description());
  sessions_.mutateSession(session.id, [&](MacNativeUploadSession& live) {
    live.state = State::failed;
    live.lastError = error.description();
    live.lastModifiedAt = now();
    session = live;
    return Change::made;
  });
  sessions_.remove(session.id);
  CO_TRY_VOID(co_await sessionStorage_.flushed());
  tellDelegate([&](auto& delegate) { delegate.uploadDidFail(session, error); });
  finalizationWaits_.finish(session.id, error);
  finalizationTimeouts_.erase(session.id);
  notifications_.post("macUploadFailed",
                      {{"sessionId", session.id}, {"fileId", session.fileId}, {"error", error.description()}});
  co_return success;
}

// Stopping

void MacNativeBackgroundUploadManager::stopSession(StopKind kind, const std::optional<std::string>& sessionId) {
  main_.assertCurrent();
  std::vector<SessionContext> contexts = sessions_.all();
  if (sessionId) {
    std::erase_if(contexts, [&](const SessionContext& context) { return context.session.id != *sessionId; });
    if (contexts.empty()) {
      logger_.info("stopSession called for unknown session: " + shortSessionId(*sessionId) + ", ignoring");
    }
  }
  for (const SessionContext& context : contexts) {
    stop(context, kind);
    if (kind == StopKind::abort) tasks_.start(tellServiceOfAbort(context.session.identity()));
  }
}

void MacNativeBackgroundUploadManager::stop(const SessionContext& context, StopKind kind) {
  const SessionId& id = context.session.id;
  heartbeats_.stopHeartbeat(id);
  transfers_.stopVerification(id);
  if (kind == StopKind::abort) {
    transfers_.cancelTransfers(id);
    sessions_.mutateSession(id, [&](MacNativeUploadSession& live) {
      live.state = State::aborted;
      live.lastModifiedAt = now();
      return Change::made;
    });
  }
  partFiles_.cleanupTempFiles(id);
  sessions_.remove(id);
  logger_.info("Session stopped (abort: " + truth(kind == StopKind::abort) + ")" + ofSession(id));
}

Task<void> MacNativeBackgroundUploadManager::tellServiceOfAbort(UploadIdentity upload) {
  auto told = co_await apiClient_.abortMultipartUpload(std::move(upload));
  // What the service does not know needs no abort.
  if (!told && isNotFound(told.error())) co_return success;
  co_return told;
}

Task<void> MacNativeBackgroundUploadManager::abortSession(std::string sessionId) {
  const auto context = sessions_.find(sessionId);
  if (!context) co_return co_await abortStoredSession(std::move(sessionId));
  stop(*context, StopKind::abort);
  CO_TRY_VOID(co_await tellServiceOfAbort(context->session.identity()));
  CO_TRY_VOID(co_await sessionStorage_.flushed());
  co_return co_await partFiles_.flushed();
}

Task<void> MacNativeBackgroundUploadManager::abortStoredSession(SessionId sessionId) {
  CO_TRY(auto sessions, co_await sessionStorage_.savedSessions());
  const auto found = std::ranges::find(sessions, sessionId, &MacNativeUploadSession::id);
  const bool canBeAborted =
      found != sessions.end() && found->state != State::completed && found->state != State::aborted;
  if (!canBeAborted) co_return MacBackgroundUploadError::noActiveSession;
  MacNativeUploadSession session = *std::move(found);
  CO_TRY_VOID(co_await tellServiceOfAbort(session.identity()));
  session.state = State::aborted;
  session.lastModifiedAt = now();
  sessionStorage_.saveSession(session);
  partFiles_.cleanupTempFiles(session.id);
  CO_TRY_VOID(co_await sessionStorage_.flushed());
  co_return co_await partFiles_.flushed();
}

// From one process to the next

Task<void> MacNativeBackgroundUploadManager::resumeIncompleteSessions() {
  // Whatever is in the table now is ours, even when it ends while the records are read.
  std::set<SessionId> ours;
  for (const SessionContext& context : sessions_.all()) ours.insert(context.session.id);
  CO_TRY(auto sessions, co_await sessionStorage_.savedSessions());
  if (isEnding_) co_return MacBackgroundUploadError::sessionInterrupted;
  std::erase_if(sessions, [](const MacNativeUploadSession& session) { return !session.isIncomplete(); });
  if (sessions.empty()) {
    logger_.info("No incomplete sessions to resume");
    co_return success;
  }
  logger_.info("Found " + std::to_string(sessions.size()) + " incomplete session(s) to resume");
  for (const MacNativeUploadSession& session : sessions) {
    if (ours.contains(session.id) || sessions_.find(session.id)) {
      logger_.info("Session " + shortSessionId(session.id) + " already active, skipping resume");
    } else if (session.state == State::active) {
      markInterrupted(session);
    } else {
      resume(session);
    }
  }
  co_return success;
}

void MacNativeBackgroundUploadManager::markInterrupted(MacNativeUploadSession session) {
  session.state = State::failed;
  session.lastError = "Recording interrupted by app termination";
  session.lastModifiedAt = now();
  sessionStorage_.saveSession(session);
  partFiles_.cleanupTempFiles(session.id);
  tellDelegate([&](auto& delegate) { delegate.uploadDidFail(session, MacBackgroundUploadError::sessionInterrupted); });
}

void MacNativeBackgroundUploadManager::resume(const MacNativeUploadSession& session) {
  logger_.info("Resuming session: " + shortSessionId(session.id));
  sessions_.insert(makeContext(session));
  heartbeats_.startHeartbeat(session.id);
  auto retryable = session.getRetryableParts(MacNativeUploadSession::mostAttemptsPerPart);
  if (retryable.empty()) return checkAndFinalizeIfComplete(session.id);
  transfers_.retryInTurn(std::move(retryable), session.id);
}

Task<void> MacNativeBackgroundUploadManager::sweepLeftovers() {
  apiClient_.sweepTemporaryFiles();
  sessionStorage_.sweepTemporaryFiles();
  // The names first: a session that starts meanwhile has no file among them.
  CO_TRY(auto names, co_await partFiles_.list());
  CO_TRY(const auto saved, co_await sessionStorage_.savedSessions());
  std::set<SessionId> owners;
  for (const MacNativeUploadSession& session : saved) {
    if (session.isIncomplete()) owners.insert(session.id);
  }
  for (const SessionContext& context : sessions_.all()) owners.insert(context.session.id);
  partFiles_.sweep(std::move(names), owners);
  co_return success;
}

Task<void> MacNativeBackgroundUploadManager::prepareForTermination() {
  isEnding_ = true;
  transfers_.end();
  heartbeats_.stopAll();
  tasks_.cancelAll();
  finalizationTimeouts_.clear();
  for (const SessionContext& context : sessions_.all()) {
    const SessionId& id = context.session.id;
    transfers_.stopVerification(id);
    leaveForNextLaunch(id);
    sessions_.remove(id);
    finalizationWaits_.finish(id, MacBackgroundUploadError::sessionInterrupted);
  }
  CO_TRY_VOID(co_await sessionStorage_.flushed());
  co_return co_await partFiles_.flushed();
}

void MacNativeBackgroundUploadManager::leaveForNextLaunch(const SessionId& sessionId) {
  sessions_.mutateSession(sessionId, [&](MacNativeUploadSession& live) {
    // A recording that was cut off, or a part that was given up: the next launch calls it failed. One that the service
    // was asked to finish stays as it is: nobody may ask twice.
    const bool canGoOn = live.state == State::active || live.state == State::uploading;
    if (!canGoOn || !live.totalPartsExpected || live.hasExhaustedPart()) return Change::none;
    const std::vector<int> pending = live.pendingParts;
    for (const int part : pending) {
      live.markPartFailed(part, describe(MacBackgroundUploadError::sessionInterrupted), now());
    }
    live.state = State::uploading;
    live.lastModifiedAt = now();
    return Change::made;
  });
}

// What others look at

double MacNativeBackgroundUploadManager::getCurrentProgress(const std::optional<std::string>& sessionId) {
  const auto context = sessions_.find(sessionId);
  return context ? progressOf(context->session) : 0;
}

std::optional<MacNativeUploadSession> MacNativeBackgroundUploadManager::activeSession() {
  auto context = sessions_.findActive();
  return context ? std::optional(std::move(context->session)) : std::nullopt;
}

std::optional<MacNativeUploadSession> MacNativeBackgroundUploadManager::getSession(const std::string& sessionId) {
  auto context = sessions_.find(sessionId);
  return context ? std::optional(std::move(context->session)) : std::nullopt;
}

std::vector<MacNativeUploadSession> MacNativeBackgroundUploadManager::runningSessions() {
  std::vector<MacNativeUploadSession> sessions;
  for (SessionContext& context : sessions_.all()) sessions.push_back(std::move(context.session));
  return sessions;
}

}  // namespace quillbeam
