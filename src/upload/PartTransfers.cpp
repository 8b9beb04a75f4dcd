#include "upload/PartTransfers.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "upload/MacBackgroundUploadError.h"
#include "upload/SessionLogText.h"

namespace quillbeam {

namespace {

using namespace std::chrono_literals;
using Change = UploadSessionTable::Change;

constexpr Duration retryDelay = 2s;
constexpr Duration partRequestTimeout = 60s;
constexpr int mostAttempts = MacNativeUploadSession::mostAttemptsPerPart;

/// Without the quotes that HTTP puts around it.
std::string etagOf(const HttpResponse& response) {
  const std::string* header = response.header("Etag");
  std::string etag = header == nullptr ? "" : *header;
  std::erase(etag, '"');
  return etag;
}

BackgroundTransferOptions transferOptions() {
  return {.identifier = "io.quillbeam.app.macos.backgroundUpload", .requestTimeout = 60s, .resourceTimeout = 600s};
}

}  // namespace

PartTransfers::PartTransfers(Platform& platform, const Logger& logger, UploadSessionTable& sessions,
                             PartFiles& partFiles, PartTransfersObserver& observer)
    : dispatch_(platform.dispatch),
      main_(platform.dispatch.main()),
      logger_(logger),
      sessions_(sessions),
      partFiles_(partFiles),
      observer_(observer),
      taskMap_(platform.dispatch),
      backgroundSession_(platform.network.makeBackgroundSession(transferOptions(), *this)),
      verification_({main_, logger, sessions, taskMap_, *backgroundSession_,
                     [this](int part, const SessionId& id) { tasks_.start(retryPart(part, id)); },
                     [this](const SessionId& id) { retryIdleParts(id); }}),
      tasks_(main_) {
  logger_.info("Background URLSession configured with identifier: " + transferOptions().identifier);
}

PartTransfers::~PartTransfers() { end(); }

void PartTransfers::end() {
  backgroundSession_.reset();
  tasks_.cancelAll();
}

void PartTransfers::startVerification(const std::string& sessionId) {
  verification_.startUploadCompletionVerification(sessionId);
}

void PartTransfers::stopVerification(const std::string& sessionId) {
  verification_.stopUploadCompletionVerification(sessionId);
}

void PartTransfers::cancelTransfers(const std::string& sessionId) {
  for (const UploadTaskId task : taskMap_.tasksOf(sessionId)) backgroundSession_->cancel(task);
}

// From a part to its transfer

Task<void> PartTransfers::upload(SessionContext context, int partNumber, PartContent data) {
  const SessionId& id = context.session.id;
  const auto claim = claimUnlessUnderWay(id, partNumber);
  if (!claim || isUploaded(id, partNumber)) co_return success;
  CO_TRY(const std::string url, co_await context.urlManager->getUrl(partNumber));
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

PartClaims::Claim PartTransfers::claimUnlessUnderWay(const SessionId& sessionId, int partNumber) {
  // One transfer of a part at a time: a second one could fail after the first has confirmed it.
  if (taskMap_.partsOf(sessionId).contains(partNumber)) return nullptr;
  return claims_.claimUnlessClaimed(sessionId, partNumber);
}

bool PartTransfers::isUploaded(const SessionId& sessionId, int partNumber) {
  const auto context = sessions_.find(sessionId);
  return context && context->session.isUploaded(partNumber);
}

void PartTransfers::startTransfer(const std::string& url, MacTaskInfo info) {
  HttpRequest request{.method = "PUT", .url = url, .timeout = partRequestTimeout};
  const UploadTaskId task = backgroundSession_->makeUploadTask(std::move(request), info.chunkFile);
  taskMap_.insert(task, std::move(info));
  backgroundSession_->resume(task);
}

// From the transfer to its outcome, on the background session's queue

void PartTransfers::uploadTaskDidComplete(UploadTaskId task, Result<std::optional<HttpResponse>> outcome) {
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

void PartTransfers::partDidSucceed(const MacTaskInfo& info, const HttpResponse& response) {
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
  observer_.partWasConfirmed(*session, info.partNumber);
}

void PartTransfers::partDidFail(const MacTaskInfo& info, const Error& error) {
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
  observer_.partHasFailed(*session, info.partNumber, error);
  if (!std::ranges::count(session->getRetryableParts(mostAttempts), info.partNumber)) return;
  if (const auto context = sessions_.find(info.sessionId)) context->urlManager->invalidateUrl(info.partNumber);
  main_.async(weakly(this, [part = info.partNumber, id = info.sessionId,
                            claim = claims_.claim(info.sessionId, info.partNumber)](PartTransfers& self) {
    if (self.backgroundSession_) self.tasks_.start(self.retryLater(part, id, claim));
  }));
}

void PartTransfers::removeUnlessRetried(const MacTaskInfo& info) {
  const auto context = sessions_.find(info.sessionId);
  const MacFailedPart* failed = context ? context->session.failedPart(info.partNumber) : nullptr;
  if (failed == nullptr || failed->retryCount >= mostAttempts) partFiles_.remove(info.chunkFile);
}

void PartTransfers::backgroundSessionDidFinishEvents() {
  logger_.info("Background session finished all events");
  observer_.transfersHaveSettled();
}

// Retries

void PartTransfers::retryInTurn(std::vector<int> parts, const std::string& sessionId) {
  tasks_.start(retryAll(std::move(parts), sessionId));
}

Task<void> PartTransfers::retryLater(int partNumber, SessionId sessionId, PartClaims::Claim) {
  CO_TRY_VOID(co_await delay(main_, retryDelay));
  co_return co_await runRetry(partNumber, std::move(sessionId));
}

Task<void> PartTransfers::retryPart(int partNumber, SessionId sessionId) {
  const auto claim = claimUnlessUnderWay(sessionId, partNumber);
  if (!claim) co_return success;
  co_return co_await runRetry(partNumber, std::move(sessionId));
}

Task<void> PartTransfers::retryAll(std::vector<int> parts, SessionId sessionId) {
  for (const int part : parts) CO_TRY_VOID(co_await retryPart(part, sessionId));
  co_return success;
}

void PartTransfers::retryIdleParts(const SessionId& sessionId) {
  const auto context = sessions_.find(sessionId);
  if (!context) return;
  for (const int part : context->session.getRetryableParts(mostAttempts)) tasks_.start(retryPart(part, sessionId));
}

Task<void> PartTransfers::runRetry(int partNumber, SessionId sessionId) {
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

Task<void> PartTransfers::tryAgain(int partNumber, SessionContext context) {
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

// What others look at

Task<PartTransfers::State> PartTransfers::state(std::string sessionId) {
  State state;
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
