#include "upload/MacNativeBackgroundUploadManager.h"

#include <algorithm>
#include <chrono>
#include <tuple>

#include "base/Text.h"
#include "upload/SessionLogText.h"

namespace quillbeam {

namespace {

using namespace std::chrono_literals;
using State = MacUploadSessionState;
using Change = UploadSessionTable::Change;

constexpr Duration retryDelay = 2s;
constexpr Duration finalizationTimeout = 120s;
constexpr Duration partRequestTimeout = 60s;
constexpr int mostAttempts = MacNativeUploadSession::mostAttemptsPerPart;

std::string orNone(const std::optional<std::string>& text) { return text.value_or("none"); }

/// Without the quotes that HTTP puts around it.
std::string etagOf(const HttpResponse& response) {
  const std::string* header = response.header("Etag");
  std::string etag = header == nullptr ? "" : *header;
  std::erase(etag, '"');
  return etag;
}

double progressOf(const MacNativeUploadSession& session) {
  const int expected = session.totalPartsExpected.value_or(0);
  return expected < 1 ? 0 : static_cast<double>(session.uploadedParts.size()) / expected;
}

bool isNotFound(const Error& error) { return httpStatus(error) == 404; }

BackgroundTransferOptions transferOptions() {
  return {.identifier = "io.quillbeam.app.macos.backgroundUpload", .requestTimeout = 60s, .resourceTimeout = 600s};
}

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
      taskMap_(platform.dispatch),
      finalizationWaits_(platform.dispatch),
      backgroundSession_(platform.network.makeBackgroundSession(transferOptions(), *this)),
      heartbeats_(main_, logger_, apiClient, sessions_),
      verification_({main_, logger_, sessions_, taskMap_, *backgroundSession_,
                     [this](int part, const SessionId& id) { tasks_.start(retryPart(part, id)); },
                     [this](const SessionId& id) { retryIdleParts(id); }}),
      tasks_(main_) {
  logger_.info("Background URLSession configured with identifier: " + transferOptions().identifier);
}

MacNativeBackgroundUploadManager::~MacNativeBackgroundUploadManager() {
  // Its callbacks use everything else.
  backgroundSession_.reset();
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
  const auto context = sessions_.find(sessionId);
  if (!context) co_return MacBackgroundUploadError::noActiveSession;
  const SessionId id = context->session.id;
  const auto claim = claimUnlessUnderWay(id, partNumber);
  if (!claim || isUploaded(id, partNumber)) co_return success;
  CO_TRY(const std::string url, co_await context->urlManager->getUrl(partNumber));
  if (!partFiles_.isAvailable()) co_return MacBackgroundUploadError::tempDirectoryNotAvailable;
  const std::int64_t size = sizeOf(data);
  const Path file = partFiles_.path(id, partNumber);
  auto written = co_await partFiles_.write(file, std::move(data));
  if (!written) co_return failedToWriteTempFile(std::move(written).error());
  logger_.info("Chunk " + std::to_string(partNumber) + " written to temp file: " + std::string(fileName(file)));
  const auto session = sessions_.mutateSession(id, [&](MacNativeUploadSession& live) {
    live.markPartPending(partNumber, now());
    return Change::made;
  });
  if (!session) {
    // Stopped meanwhile: its part files have been cleaned up already.
    partFiles_.remove(file);
    co_return MacBackgroundUploadError::noActiveSession;
  }
  if (!isParsableUrl(url)) co_return MacBackgroundUploadError::invalidPresignedUrl;
  startTransfer(url, {.sessionId = id, .partNumber = partNumber, .chunkFile = file, .size = size});
  logger_.info("🚀 Started background upload for part " + std::to_string(partNumber) + " (" + std::to_string(size) +
               " bytes)" + ofSession(id));
  co_return success;
}

void MacNativeBackgroundUploadManager::startTransfer(const std::string& url, MacTaskInfo info) {
  HttpRequest request{.method = "PUT", .url = url, .timeout = partRequestTimeout};
  const UploadTaskId task = backgroundSession_->makeUploadTask(std::move(request), info.chunkFile);
  taskMap_.insert(task, std::move(info));
  backgroundSession_->resume(task);
}

void MacNativeBackgroundUploadManager::uploadTaskDidComplete(UploadTaskId task,
                                                             Result<std::optional<HttpResponse>> outcome) {
  const auto info = taskMap_.find(task);
  if (!info) {
    logger_.info("Received completion for unknown task: " + std::to_string(static_cast<std::int64_t>(task)));
    return;
  }
  if (!outcome) {
    partDidFail(*info, outcome.error());
    removeUnlessRetried(*info);
  } else if (!*outcome) {
    logger_.info("⚠️ No HTTP response for part " + std::to_string(info->partNumber) + ofSession(info->sessionId));
    partDidFail(*info, MacBackgroundUploadError::noHttpResponse);
  } else if ((*outcome)->isSuccess()) {
    partDidSucceed(*info, **outcome);
    partFiles_.remove(info->chunkFile);
  } else {
    partDidFail(*info, storageHttpError((*outcome)->status));
    removeUnlessRetried(*info);
  }
  // At no moment is a part neither under way nor confirmed nor claimed for its retry.
  taskMap_.remove(task);
}

void MacNativeBackgroundUploadManager::partDidSucceed(const MacTaskInfo& info, const HttpResponse& response) {
  const std::string etag = etagOf(response);
  logger_.info("✅ Part " + std::to_string(info.partNumber) + " uploaded successfully, ETag: " + etag +
               ofSession(info.sessionId));
  const auto session = sessions_.mutateSession(info.sessionId, [&](MacNativeUploadSession& live) {
    live.markPartUploaded(info.partNumber, etag, info.size, now());
    return Change::made;
  });
  if (!session) {
    logger_.info("Session " + shortSessionId(info.sessionId) +
                 " not found for completed upload (already finalized/cleaned up) - skipping");
    return;
  }
  tellDelegate([&](auto& delegate) { delegate.uploadDidConfirmPart(*session, info.partNumber); });
  const ValueMap userInfo{
      {"progress", progressOf(*session)}, {"partNumber", info.partNumber}, {"fileId", session->fileId}};
  onMain([userInfo](auto& self) { self.notifications_.post("macUploadProgressUpdated", userInfo); });
  checkAndFinalizeIfComplete(info.sessionId);
}

void MacNativeBackgroundUploadManager::partDidFail(const MacTaskInfo& info, const Error& error) {
  logger_.error("❌ Part " + std::to_string(info.partNumber) + " upload failed: " + error.description() +
                ofSession(info.sessionId));
  const auto session = sessions_.mutateSession(info.sessionId, [&](MacNativeUploadSession& live) {
    live.markPartFailed(info.partNumber, error.description(), now());
    return Change::made;
  });
  if (!session) {
    logger_.info("Session " + shortSessionId(info.sessionId) + " not found for failed upload - skipping");
    return;
  }
  tellDelegate([&](auto& delegate) { delegate.uploadPartDidFail(*session, info.partNumber, error); });
  if (!std::ranges::count(session->getRetryableParts(mostAttempts), info.partNumber)) return;
  if (const auto context = sessions_.find(info.sessionId)) context->urlManager->invalidateUrl(info.partNumber);
  onMain([part = info.partNumber, id = info.sessionId, claim = claims_.claim(info.sessionId, info.partNumber)](
             auto& self) { self.tasks_.start(self.retryLater(part, id, claim)); });
}

void MacNativeBackgroundUploadManager::removeUnlessRetried(const MacTaskInfo& info) {
  const auto context = sessions_.find(info.sessionId);
  const MacFailedPart* failed = context ? context->session.failedPart(info.partNumber) : nullptr;
  if (failed == nullptr || failed->retryCount >= mostAttempts) partFiles_.remove(info.chunkFile);
}

PartClaims::Claim MacNativeBackgroundUploadManager::claimUnlessUnderWay(const SessionId& sessionId, int partNumber) {
  // One transfer of a part at a time: a second one could fail after the first has confirmed it.
  if (taskMap_.partsOf(sessionId).contains(partNumber)) return nullptr;
  return claims_.claimUnlessClaimed(sessionId, partNumber);
}

bool MacNativeBackgroundUploadManager::isUploaded(const SessionId& sessionId, int partNumber) {
  const auto context = sessions_.find(sessionId);
  return context && context->session.isUploaded(partNumber);
}

Task<void> MacNativeBackgroundUploadManager::retryLater(int partNumber, SessionId sessionId, PartClaims::Claim) {
  CO_TRY_VOID(co_await delay(main_, retryDelay));
  co_return co_await runRetry(partNumber, std::move(sessionId));
}

Task<void> MacNativeBackgroundUploadManager::retryPart(int partNumber, SessionId sessionId) {
  const auto claim = claimUnlessUnderWay(sessionId, partNumber);
  if (!claim) co_return success;
  co_return co_await runRetry(partNumber, std::move(sessionId));
}

Task<void> MacNativeBackgroundUploadManager::runRetry(int partNumber, SessionId sessionId) {
  logger_.info("Retrying part " + std::to_string(partNumber) + ofSession(sessionId));
  auto context = sessions_.find(sessionId);
  if (!context) {
    logger_.info("Cannot retry part " + std::to_string(partNumber) + " - session " + shortSessionId(sessionId) +
                 " not found");
    co_return success;
  }
  if (!partFiles_.isAvailable()) co_return success;
  const auto tried = co_await tryAgain(partNumber, *std::move(context));
  if (!tried) {
    logger_.info("Failed to retry part " + std::to_string(partNumber) + ": " + tried.error().description());
  }
  co_return success;
}

Task<void> MacNativeBackgroundUploadManager::tryAgain(int partNumber, SessionContext context) {
  const SessionId& id = context.session.id;
  const Path file = partFiles_.path(id, partNumber);
  CO_TRY(const auto size, co_await partFiles_.size(file));
  if (!size) {
    logger_.info("Temp file not found for retry: " + std::string(fileName(file)));
    co_return success;
  }
  context.urlManager->invalidateUrl(partNumber);
  CO_TRY(const std::string url, co_await context.urlManager->getUrl(partNumber));
  if (!isParsableUrl(url)) co_return MacBackgroundUploadError::invalidPresignedUrl;
  if (!sessions_.find(id)) co_return MacBackgroundUploadError::noActiveSession;
  startTransfer(url, {.sessionId = id, .partNumber = partNumber, .chunkFile = file, .size = *size});
  co_return success;
}

void MacNativeBackgroundUploadManager::retryIdleParts(const SessionId& sessionId) {
  const auto context = sessions_.find(sessionId);
  if (!context) return;
  for (const int part : context->session.getRetryableParts(mostAttempts)) tasks_.start(retryPart(part, sessionId));
}

void MacNativeBackgroundUploadManager::backgroundSessionDidFinishEvents() {
  logger_.info("Background session finished all events");
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
  verification_.startUploadCompletionVerification(id);
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
  verification_.stopUploadCompletionVerification(sessionId);
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
    self.verification_.stopUploadCompletionVerification(session.id);
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
  verification_.stopUploadCompletionVerification(id);
  if (kind == StopKind::abort) {
    for (const UploadTaskId task : taskMap_.tasksOf(id)) backgroundSession_->cancel(task);
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
  auto retryable = session.getRetryableParts(mostAttempts);
  if (retryable.empty()) return checkAndFinalizeIfComplete(session.id);
  tasks_.start(retryAll(std::move(retryable), session.id));
}

Task<void> MacNativeBackgroundUploadManager::retryAll(std::vector<int> parts, SessionId sessionId) {
  for (const int part : parts) CO_TRY_VOID(co_await retryPart(part, sessionId));
  co_return success;
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
  backgroundSession_.reset();
  heartbeats_.stopAll();
  tasks_.cancelAll();
  finalizationTimeouts_.clear();
  for (const SessionContext& context : sessions_.all()) {
    const SessionId& id = context.session.id;
    verification_.stopUploadCompletionVerification(id);
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

Task<MacNativeBackgroundUploadManager::TransferState> MacNativeBackgroundUploadManager::transferState(
    std::string sessionId) {
  TransferState state;
  if (!backgroundSession_) co_return state;
  using Listing = std::vector<UploadTaskInfo>;
  auto list = [this](Completion<Listing> done) {
    backgroundSession_->listTasks([done](Listing tasks) { done(std::move(tasks)); });
  };
  CO_TRY(const Listing listing, co_await completed<Listing>(list));
  const auto ours = taskMap_.tasksOf(sessionId);
  for (const UploadTaskInfo& task : listing) {
    if (ours.contains(task.id)) state.bytesInFlight += task.bytesSent;
  }
  state.activeParts = taskMap_.partsOf(sessionId);
  state.activeParts.merge(claims_.partsOf(sessionId));
  co_return state;
}

}  // namespace quillbeam
