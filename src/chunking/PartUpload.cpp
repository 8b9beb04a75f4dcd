#include "chunking/PartUpload.h"

#include <chrono>
#include <utility>

namespace quillbeam {

namespace {

using namespace std::chrono_literals;

constexpr Duration stepCheck = 50ms;
constexpr PartTexts finalPartTexts{"🏁 Uploading final part #", "✅ Final part #", "❌ Final part #", " upload failed"};

std::string text(std::size_t number) { return std::to_string(number); }
std::string operator+(std::string_view text, const std::string& more) { return std::string(text) + more; }

}  // namespace

PartUpload::PartUpload(DispatchQueue& main, NotificationCenter& notifications, const Logger& logger,
                       const SegmentPolicy& policy, ChunkedRecording recording)
    : main_(main),
      notifications_(notifications),
      logger_(logger),
      policy_(policy),
      recording_(std::move(recording)),
      tasks_(main_) {}

void PartUpload::setDelegate(std::shared_ptr<ChunkUploadDelegate> delegate) {
  uploadDelegate_ = std::move(delegate);
  logger_.info("Upload delegate set for native upload mode");
}

void PartUpload::begin(SegmentBackupManager& backup, std::string backupId) {
  backup_ = &backup;
  backupId_ = std::move(backupId);
  if (isClosed_) return;
  opening_ = Opening::scheduled;
  openingTimer_ = main_.after(policy_.openingDelay, [this] { open(); });
}

/// A completion that may be called on any queue and after this upload has gone.
template <class T, class Handler>
auto PartUpload::onMain(Handler handler) {
  auto weak = weakly(this, std::move(handler));
  return [&main = main_, weak = std::move(weak)](Result<T> result) mutable {
    main.async([weak = std::move(weak), result = std::move(result)]() mutable { weak(std::move(result)); });
  };
}

const PartTexts& PartUpload::texts(PartKind kind) const {
  if (kind == PartKind::final) return finalPartTexts;
  return kind == PartKind::buffered ? policy_.bufferedPart : policy_.regularPart;
}

void PartUpload::report(const Error& error) {
  if (observer_ != nullptr) observer_->chunkWriterDidFailWithError(error);
}

// ---- opening

void PartUpload::open() {
  openingTimer_.reset();
  if (!uploadDelegate_) {
    opening_ = Opening::failed;
    logger_.error("No upload delegate configured (neither Flutter bridge nor native delegate)");
    return report(policy_.uploadDelegateNotSet);
  }
  opening_ = Opening::underWay;
  for (const std::string& line : policy_.opening(recording_, backupId_)) logger_.info(line);
  auto answered = onMain<InitializeUploadResponse>(
      [](PartUpload& self, Result<InitializeUploadResponse> answer) { self.didOpen(std::move(answer)); });
  uploadDelegate_->initializeUpload({.teamId = recording_.teamId,
                                     .folderId = recording_.folderId,
                                     .fileName = recording_.fileName,
                                     .contentType = recording_.contentType,
                                     .localBackupPath = recording_.localFile,
                                     .segmentBackupId = backupId_},
                                    std::move(answered));
}

void PartUpload::didOpen(Result<InitializeUploadResponse> answer) {
  if (!answer) return didFailToOpen(answer.error());
  opening_ = Opening::succeeded;
  logger_.info(policy_.opened + answer->fileId);
  if (backup_ != nullptr) tasks_.start(backup_->updateFileId(answer->fileId));
  logger_.info(policy_.checkingBuffered + text(byteBuffer_.size()) + " bytes)");
  lastBufferedPart_ = static_cast<int>(byteBuffer_.size() / PartBuffer::fixedPartSize);
  sendParts();
}

void PartUpload::didFailToOpen(const Error& error) {
  opening_ = Opening::failed;
  openingError_ = error;
  logger_.error("❌ Failed to initialize multipart upload: " + error.description());
  report(error);
  ValueMap userInfo{{"event", "initFailed"},
                    {"fileId", ""},
                    {"teamId", recording_.teamId},
                    {"folderId", recording_.folderId},
                    {"error", error.description()}};
  if (const auto tempFileId = uploadDelegate_->tempFileId()) userInfo.set("tempFileId", *tempFileId);
  notifications_.post("macRecordingEntryUpdate", userInfo);
}

Task<void> PartUpload::awaitOpening() {
  if (opening_ == Opening::scheduled) open();
  while (opening_ == Opening::underWay) CO_TRY_VOID(co_await delay(main_, stepCheck));
  co_return success;
}

// ---- parts

void PartUpload::announce() {
  if (isClosed_) bytesAreMissing_ = true;
}

void PartUpload::noteMissingBytes(const Error& why) {
  bytesAreMissing_ = true;
  report(why);
}

PartUpload::Taken PartUpload::append(const ByteChain& bytes, std::optional<FMP4SegmentInfo> savedAs) {
  if (policy_.backlog == SegmentPolicy::Backlog::readBack) {
    byteBuffer_.append(bytes, std::move(savedAs));
  } else if (byteBuffer_.hasRoomFor(bytes.size())) {
    byteBuffer_.append(bytes);
  } else {
    discardAll();
    return Taken::discarded;
  }
  publishSize();
  return Taken::buffered;
}

void PartUpload::discardAll() {
  if (!std::exchange(uploadBufferOverflowed_, true)) {
    logger_.error("⚠️ Upload buffer exceeds " + text(PartBuffer::maxByteBufferSize >> 20) +
                  "MB limit - uploads appear stalled. Stopping chunked upload to prevent OOM. Local backup will "
                  "continue.");
  }
  byteBuffer_.clear();
  publishSize();
  bytesAreMissing_ = true;
  logger_.error("⚠️ Cleared upload buffer. Recording continues to local backup file only.");
}

void PartUpload::sendParts() {
  if (isClosed_ || isSending_) return;
  if (opening_ != Opening::succeeded) {
    return logger_.info(policy_.stillBuffering + text(byteBuffer_.size()) + " bytes)");
  }
  if (!maySendPart()) return;
  isSending_ = true;
  tasks_.start(sendPartsInOrder());
}

void PartUpload::stopSending() {
  isClosed_ = true;
  openingTimer_.reset();
}

bool PartUpload::maySendPart() const {
  return !isClosed_ && byteBuffer_.hasPart() && inFlightUploads_.size() < policy_.maxPartsInFlight;
}

Task<void> PartUpload::sendPartsInOrder() {
  while (maySendPart()) {
    CO_TRY_VOID(co_await readBack());
    if (!maySendPart()) break;
    if (auto part = byteBuffer_.takePart()) {
      sendPart(*std::move(part), uploadedPartNumber_ < lastBufferedPart_ ? PartKind::buffered : PartKind::regular);
    }
  }
  isSending_ = false;
  co_return success;
}

/// A segment that cannot be read is left out as a whole: what the service gets plays on behind the gap.
Task<void> PartUpload::readBack() {
  while (const auto segment = byteBuffer_.nextToReadBack()) {
    const auto bytes = co_await backup_->readSegment(*segment);
    if (!bytes) {
      bytesAreMissing_ = true;
      logger_.error("⚠️ A segment is missing in the upload: " + bytes.error().description());
    }
    byteBuffer_.didReadBack(bytes.value_or(ByteChain()));
    publishSize();
  }
  co_return success;
}

void PartUpload::sendPart(ByteChain part, PartKind kind) {
  const int number = ++uploadedPartNumber_;
  const std::size_t size = part.size();
  publishSize();
  inFlightUploads_.insert(number);
  logSending(number, size, kind);
  auto sent = onMain<void>([number, size, kind](PartUpload& self, const Result<void>& outcome) {
    self.didSendPart(number, size, kind, outcome);
  });
  uploadDelegate_->uploadChunk(std::move(part), number, std::move(sent));
}

void PartUpload::logSending(int partNumber, std::size_t size, PartKind kind) const {
  const std::string number = std::to_string(partNumber);
  const std::string start = texts(kind).sending + number;
  if (kind == PartKind::final) {
    return logger_.info(start + ", size: " + text(size) + " bytes (final part can be any size)");
  }
  logger_.info(start + " with exactly " + text(size) + " bytes (remaining buffer: " + text(byteBuffer_.size()) +
               " bytes)");
  if (kind == PartKind::regular) logger_.info(policy_.handingOver + number + ", size: " + text(size) + " bytes ");
}

void PartUpload::didSendPart(int partNumber, std::size_t size, PartKind kind, const Result<void>& sent) {
  inFlightUploads_.erase(partNumber);
  if (kind == PartKind::final) finalPart_ = sent;
  const std::string number = std::to_string(partNumber);
  if (sent) {
    totalBytesUploaded_ += static_cast<std::int64_t>(size);
    logger_.info(texts(kind).sent + number + " uploaded successfully (" + text(size) + " bytes)");
    if (kind == PartKind::final) logger_.info("📊 Total bytes uploaded: " + std::to_string(totalBytesUploaded_));
    if (observer_ != nullptr) observer_->chunkWriterDidUploadPart(partNumber);
  } else {
    bytesAreMissing_ = true;
    logger_.error(texts(kind).failed + number + std::string(texts(kind).failedEnding) + ": " +
                  sent.error().description());
    report(sent.error());
  }
  sendParts();
}

std::string PartUpload::inFlightText() const {
  std::string numbers;
  for (const int number : inFlightUploads_) numbers += (numbers.empty() ? "" : ", ") + std::to_string(number);
  return "[" + numbers + "]";
}

// ---- the end

Task<void> PartUpload::finish() {
  auto finished = co_await sendAllAndComplete();
  isClosed_ = true;
  backup_ = nullptr;
  co_return finished;
}

Task<void> PartUpload::sendAllAndComplete() {
  if (opening_ != Opening::notTried) {
    auto rest = co_await sendRest();
    if (!rest && policy_.failedFinalPart == SegmentPolicy::FailedFinalPart::endsTheUpload) co_return rest;
  }
  CO_TRY_VOID(co_await awaitParts());
  co_return co_await complete();
}

Task<void> PartUpload::sendRest() {
  CO_TRY_VOID(co_await awaitOpening());
  CO_TRY_VOID(co_await awaitFullParts());
  isClosed_ = true;
  if (byteBuffer_.empty()) {
    if (policy_.finalSegment == SegmentPolicy::FinalSegment::isAwaited) {
      logger_.info("No final data to upload after waiting");
    }
    co_return success;
  }
  logger_.info("📦 Uploading remaining " + text(byteBuffer_.size()) + " bytes as final part");
  auto sent = co_await sendFinalPart();
  if (sent) {
    logger_.info("Final upload completed successfully");
  } else {
    logger_.error("Failed to upload final part: " + sent.error().description());
  }
  co_return sent;
}

Task<void> PartUpload::awaitFullParts() {
  if (opening_ != Opening::succeeded) co_return success;
  while (!isClosed_ && (isSending_ || byteBuffer_.hasPart())) CO_TRY_VOID(co_await delay(main_, stepCheck));
  co_return success;
}

Task<void> PartUpload::sendFinalPart() {
  if (!uploadDelegate_) co_return policy_.uploadDelegateNotSet;
  // No upload, no part: it would end up in somebody else's.
  if (opening_ != Opening::succeeded) {
    bytesAreMissing_ = true;
    const std::string why = openingError_ ? openingError_->description() : "it was never opened";
    co_return Error(policy_.uploadFailed).withDescription(policy_.uploadFailed.description() + why);
  }
  CO_TRY_VOID(co_await readBack());
  if (byteBuffer_.empty()) co_return success;
  sendPart(byteBuffer_.takeRest(), PartKind::final);
  while (!finalPart_) CO_TRY_VOID(co_await delay(main_, stepCheck));
  co_return *finalPart_;
}

Task<void> PartUpload::awaitParts() {
  while (!inFlightUploads_.empty()) {
    logger_.info("Waiting for " + text(inFlightUploads_.size()) + " in-flight uploads to complete: " + inFlightText());
    CO_TRY_VOID(co_await delay(main_, policy_.partsCheck));
  }
  logger_.info("All in-flight uploads completed");
  co_return success;
}

Task<void> PartUpload::complete() {
  if (!uploadDelegate_) {
    logger_.error("No upload delegate available for multipart completion");
    co_return policy_.uploadDelegateNotSet;
  }
  logger_.info("Completing multipart upload... ");
  auto ask = [this](Completion<void> done) {
    uploadDelegate_->finalizeUpload([done](Result<void> outcome) { done(std::move(outcome)); });
  };
  auto finalized = co_await completed<void>(ask);
  if (finalized) {
    logger_.info("✅ Multipart upload completed successfully ");
  } else {
    logger_.error("❌ Failed to complete multipart upload: " + finalized.error().description());
  }
  co_return finalized;
}

}  // namespace quillbeam
