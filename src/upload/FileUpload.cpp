#include "upload/FileUpload.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace quillbeam {

namespace {

using namespace std::chrono_literals;

/// While one part's file waits for the device the next one can be written.
constexpr std::size_t mostHandOversAtATime = 6;
constexpr int mostHandOvers = MacNativeUploadSession::mostAttemptsPerPart;
constexpr Duration betweenHandOvers = 2s;
const MediaTime longestStandstill = MediaTime(120, 1);
constexpr int mostLooksWithoutSession = 10;

}  // namespace

std::string describe(FileUploadError error) {
  switch (error) {
    case FileUploadError::emptyFile:
      return "The file is empty";
    case FileUploadError::notAFile:
      return "This is no regular file";
    case FileUploadError::fileChanged:
      return "The file became shorter while it was read";
    case FileUploadError::partGivenUp:
      return "A part could not be uploaded";
  }
  std::unreachable();
}

std::string toText(FileUpload::Phase phase) {
  switch (phase) {
    case FileUpload::Phase::opening:
      return "opening";
    case FileUpload::Phase::sending:
      return "sending";
    case FileUpload::Phase::finishing:
      return "finishing";
    case FileUpload::Phase::ended:
      return "ended";
  }
  std::unreachable();
}

FileUpload::FileUpload(Platform& platform, MacNativeBackgroundUploadManager& manager, NotificationCenter& notifications,
                       Request request)
    : platform_(platform),
      main_(platform.dispatch.main()),
      manager_(manager),
      request_(std::move(request)),
      handOvers_(main_) {
  progressed_ = notifications.observe("macUploadProgressUpdated", [this](const ValueMap&) { wake(); });
  completed_ = notifications.observe("macUploadCompleted", [this](const ValueMap& info) { ended(info, success); });
  failed_ = notifications.observe("macUploadFailed", [this](const ValueMap& info) {
    const Value userInfo(info);
    const std::string* text = userInfo.at("error").asString();
    ended(userInfo, Error("MacUploadFailed", 1, text == nullptr ? "" : *text));
  });
}

void FileUpload::ended(const Value& userInfo, Result<void> outcome) {
  const std::string* sessionId = userInfo.at("sessionId").asString();
  if (sessionId == nullptr || *sessionId != status_.sessionId || outcome_) return;
  outcome_ = std::move(outcome);
  wake();
}

void FileUpload::wake() {
  if (const auto waiter = std::exchange(waiter_, std::nullopt)) (*waiter)(success);
}

Task<void> FileUpload::change() {
  TimerHandle timer;
  auto wait = [&](Completion<void> done) {
    waiter_ = done;
    timer = main_.after(1s, [done] { done(success); });
  };
  co_return co_await completed<void>(wait);
}

Task<void> FileUpload::run() {
  auto uploaded = co_await upload();
  status_.phase = Phase::ended;
  if (!uploaded) status_.error = uploaded.error();
  co_return uploaded;
}

Task<void> FileUpload::upload() {
  CO_TRY_VOID(co_await measure());
  CO_TRY_VOID(co_await open());
  auto sent = co_await sendParts();
  if (sent) co_return co_await finish();
  // Nothing further will come: the service need not keep what it has.
  std::ignore = co_await manager_.abortSession(status_.sessionId);
  co_return sent;
}

Task<void> FileUpload::measure() {
  auto look = [this]() -> Result<FileInfo> { return platform_.files.info(request_.file); };
  CO_TRY(const FileInfo info, co_await runOn<FileInfo>(platform_.dispatch.global(), look));
  if (info.kind != FileKind::regular) co_return FileUploadError::notAFile;
  if (info.size == 0) co_return FileUploadError::emptyFile;
  status_.totalBytes = info.size;
  status_.totalParts = static_cast<int>((info.size + partSize - 1) / partSize);
  co_return success;
}

Task<void> FileUpload::open() {
  UploadRequest request{.teamId = request_.teamId,
                        .folderId = request_.folderId,
                        .fileName = request_.fileName,
                        .contentType = request_.contentType,
                        .source = MacUploadSourceType::fileImport};
  CO_TRY(const auto session, co_await manager_.startSession(std::move(request)));
  status_.sessionId = session.id;
  status_.fileId = session.fileId;
  status_.phase = Phase::sending;
  co_return success;
}

Task<void> FileUpload::sendParts() {
  for (int part = 1; part <= status_.totalParts && !handOverError_; ++part) {
    const auto room = co_await awaitRoom();
    if (!room) handOverError_ = room.error();
    if (room) startHandOver(part);
  }
  while (handingOver_ > 0) CO_TRY_VOID(co_await change());
  if (handOverError_) co_return *handOverError_;
  co_return success;
}

void FileUpload::startHandOver(int partNumber) {
  ++handingOver_;
  handOvers_.start(sendPart(partNumber), [this](const Result<void>& handedOver) {
    --handingOver_;
    if (!handedOver && !handOverError_) handOverError_ = handedOver.error();
    wake();
  });
}

Task<void> FileUpload::awaitRoom() {
  while (true) {
    if (isStopped_) co_return CommonError::cancelled;
    const auto session = manager_.getSession(status_.sessionId);
    if (!session) co_return MacBackgroundUploadError::noActiveSession;
    // A part that was given up occupies nothing any more.
    const auto retryable = session->getRetryableParts(mostHandOvers);
    const std::size_t unconfirmed = session->pendingParts.size() + retryable.size() + handingOver_;
    if (handingOver_ < mostHandOversAtATime && unconfirmed < mostUnconfirmedParts) co_return success;
    CO_TRY_VOID(co_await change());
    CO_TRY_VOID(co_await offerIdlePartsAgain());
  }
}

FilePiece FileUpload::part(int partNumber) const {
  const std::int64_t offset = (partNumber - 1) * partSize;
  return {.file = request_.file, .offset = offset, .count = std::min(partSize, status_.totalBytes - offset)};
}

Task<void> FileUpload::sendPart(int partNumber) {
  for (int attempt = 1;; ++attempt) {
    PartContent content = part(partNumber);
    auto handedOver = co_await manager_.uploadChunk(std::move(content), partNumber, status_.sessionId);
    if (handedOver || attempt == mostHandOvers || isStopped_) co_return handedOver;
    const Error* below = handedOver.error().underlying();
    if (below != nullptr && below->is(FilesError::endOfFile)) co_return FileUploadError::fileChanged;
    CO_TRY_VOID(co_await delay(main_, betweenHandOvers));
  }
}

Task<void> FileUpload::offerIdlePartsAgain() {
  CO_TRY(const auto transfers, co_await manager_.transferState(status_.sessionId));
  const auto session = manager_.getSession(status_.sessionId);
  if (!session) co_return success;
  for (const int part : session->getRetryableParts(mostHandOvers)) {
    // The service gave no address for its retry; the next look comes in a second.
    if (!transfers.activeParts.contains(part)) std::ignore = co_await sendPart(part);
  }
  co_return success;
}

Task<void> FileUpload::finish() {
  status_.phase = Phase::finishing;
  manager_.markRecordingComplete(
      status_.totalParts, status_.sessionId, weakly(this, [](FileUpload& self, const Result<void>& outcome) {
        self.callerTimedOut_ = !outcome && outcome.error().is(MacBackgroundUploadError::finalizationTimeout);
        if (!self.callerTimedOut_ && !self.outcome_) self.outcome_ = outcome;
        self.wake();
      }));
  lastMove_ = platform_.dispatch.hostTime();
  int looksWithoutSession = 0;
  while (!outcome_) {
    CO_TRY_VOID(co_await change());
    if (manager_.getSession(status_.sessionId)) {
      CO_TRY_VOID(co_await watch());
    } else if (++looksWithoutSession > mostLooksWithoutSession) {
      // Somebody stopped it.
      co_return MacBackgroundUploadError::noActiveSession;
    }
  }
  co_return *outcome_;
}

Task<void> FileUpload::watch() {
  CO_TRY_VOID(co_await offerIdlePartsAgain());
  CO_TRY(const auto transfers, co_await manager_.transferState(status_.sessionId));
  const auto session = manager_.getSession(status_.sessionId);
  if (outcome_ || !session) co_return success;
  if (auto givenUp = checkForPartGivenUp(*session, transfers.activeParts); !givenUp) {
    // Nothing can complete it any more; the record says why.
    remember(*session);
    manager_.stopSession(MacNativeBackgroundUploadManager::StopKind::keepAtService, status_.sessionId);
    co_return givenUp;
  }
  const std::int64_t moved = session->totalBytesUploaded + transfers.bytesInFlight;
  const MediaTime now = platform_.dispatch.hostTime();
  if (moved != std::exchange(bytesMoved_, moved)) lastMove_ = now;
  // The upload goes on as long as bytes move, whatever became of the time that the caller may wait.
  if (callerTimedOut_ && now - lastMove_ > longestStandstill) co_return MacBackgroundUploadError::finalizationTimeout;
  co_return success;
}

Result<void> FileUpload::checkForPartGivenUp(const MacNativeUploadSession& session,
                                             const std::set<int>& activeParts) const {
  if (!session.hasExhaustedPart() || !activeParts.empty()) return success;
  const auto part = std::ranges::find_if(
      session.failedParts, [](const MacFailedPart& failed) { return failed.retryCount >= mostHandOvers; });
  return Error(FileUploadError::partGivenUp)
      .withDescription("Part #" + std::to_string(part->partNumber) + " failed " + std::to_string(part->retryCount) +
                       " times: " + part->lastError);
}

Task<FileUpload::Status> FileUpload::status() {
  const auto session = manager_.getSession(status_.sessionId);
  if (session) {
    CO_TRY(const auto transfers, co_await manager_.transferState(status_.sessionId));
    remember(*session);
    status_.bytesInFlight = transfers.bytesInFlight;
  } else if (status_.phase == Phase::ended && !status_.error) {
    status_.confirmedBytes = status_.totalBytes;
    status_.confirmedParts = status_.totalParts;
    status_.bytesInFlight = 0;
  }
  co_return status_;
}

void FileUpload::remember(const MacNativeUploadSession& session) {
  status_.confirmedBytes = session.totalBytesUploaded;
  status_.confirmedParts = static_cast<int>(session.uploadedParts.size());
  status_.lastError = session.lastError;
}

void FileUpload::stop() {
  isStopped_ = true;
  wake();
}

}  // namespace quillbeam
