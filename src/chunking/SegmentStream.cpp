#include "chunking/SegmentStream.h"

#include <chrono>
#include <utility>

#include "base/Text.h"
#include "chunking/VideoChunkError.h"

namespace quillbeam {

namespace {

using namespace std::chrono_literals;

constexpr Duration openingDelay = 500ms;
constexpr Duration longestFinalSegmentWait = 2s;
constexpr Duration finalSegmentCheck = 50ms;
constexpr Duration partsCheck = 500ms;
constexpr std::int64_t lastTimedSegment = 4;

std::string orNone(const std::optional<std::string>& text) { return text.value_or("none"); }
std::string text(std::size_t number) { return std::to_string(number); }
std::string seconds(MediaTime time) { return fixedPoint(time.seconds(), 3) + "s"; }

std::string timingText(const SegmentReport& report) {
  std::string line;
  for (const SegmentTrackReport& track : report.trackReports) {
    line += (line.empty() ? "" : " | ") + std::string(toText(track.mediaType)) +
            " start=" + seconds(track.earliestPresentationTime) + " dur=" + seconds(track.duration);
    if (track.mediaType == MediaType::video && track.firstVideoSamplePresentationTime) {
      line += " firstPTS=" + seconds(*track.firstVideoSamplePresentationTime);
    }
  }
  return line;
}

/// The four characters that name the segment's first box, when they are text.
std::optional<std::string> firstBoxType(const ByteChain& bytes) {
  if (bytes.size() < 8) return std::nullopt;
  ByteChain copy = bytes;
  const Bytes head = copy.takeFront(8).flattened();
  for (std::size_t at = 4; at < 8; ++at) {
    if (head[at] >= 0x80) return std::nullopt;
  }
  return std::string(head.begin() + 4, head.end());
}

}  // namespace

SegmentStream::SegmentStream(Platform& platform, StoredRecordings& storedRecordings, NotificationCenter& notifications,
                             const Logger& logger, Recording recording)
    : platform_(platform),
      main_(platform.dispatch.main()),
      storedRecordings_(storedRecordings),
      notifications_(notifications),
      logger_(logger),
      recording_(std::move(recording)),
      tasks_(main_) {}

void SegmentStream::setUploadDelegate(std::shared_ptr<ChunkUploadDelegate> delegate) {
  uploadDelegate_ = std::move(delegate);
  logger_.info("Upload delegate set for native upload mode");
}

void SegmentStream::begin() {
  main_.assertCurrent();
  segmentBackupManager_ = std::make_unique<SegmentBackupManager>(platform_, storedRecordings_);
  segmentBackupId_ = segmentBackupManager_->startNewRecording({.teamId = recording_.teamId,
                                                               .folderId = recording_.folderId,
                                                               .fileName = recording_.fileName,
                                                               .recordingType = recording_.type,
                                                               .contentType = recording_.contentType});
  logger_.info("✅ Segment backup manager initialized for crash recovery with ID: " + *segmentBackupId_);
  opening_ = Opening::scheduled;
  openingTimer_ = main_.after(openingDelay, [this] { openUpload(); });
}

// ---- segments

void SegmentStream::receive(Segment segment) {
  main_.assertCurrent();
  if (restIsSent_) bytesAreMissing_ = true;
  waiting_.push_back(std::move(segment));
  if (!std::exchange(isHandling_, true)) tasks_.start(handleSegments());
}

Task<void> SegmentStream::handleSegments() {
  while (!waiting_.empty()) {
    Segment segment = std::move(waiting_.front());
    waiting_.pop_front();
    CO_TRY_VOID(co_await handle(std::move(segment)));
  }
  isHandling_ = false;
  co_return success;
}

Task<void> SegmentStream::handle(Segment segment) {
  if (segment.kind != SegmentKind::initialization && segment.kind != SegmentKind::separable) {
    logger_.error("Received segment with unknown type " + std::to_string(static_cast<int>(segment.kind)));
    co_return success;
  }
  logArrival(segment);
  // Nothing of a segment goes anywhere before it is safe on this machine's disk; a failure there is the backup's to
  // log.
  if (segmentBackupManager_) {
    std::ignore = co_await segmentBackupManager_->saveSegment(segment.bytes, segment.kind, segmentIndex_);
  }
  takeIn(segment);
  co_return success;
}

void SegmentStream::logArrival(const Segment& segment) {
  const std::string index = std::to_string(segmentIndex_);
  const std::string size = text(segment.bytes.size());
  if (segment.kind == SegmentKind::initialization) {
    hasInitializationSegment_ = true;
    logger_.info("Received initialization segment, size: " + size + " bytes");
  } else {
    const std::string timing =
        segment.report && segmentIndex_ <= lastTimedSegment ? timingText(*segment.report) : std::string();
    if (!timing.empty()) logger_.info("Segment #" + index + " timing: " + timing);
    logger_.info("Received media segment #" + index + ", size: " + size + " bytes");
  }
  if (const auto type = firstBoxType(segment.bytes)) {
    logger_.debug([&] { return "Segment #" + index + " starts with box: " + *type; });
  }
}

void SegmentStream::takeIn(const Segment& segment) {
  if (!byteBuffer_.hasRoomFor(segment.bytes.size())) return discard();
  byteBuffer_.append(segment.bytes);
  bufferedBytes_ = byteBuffer_.size();
  logger_.info("Buffered segment #" + std::to_string(segmentIndex_) + ", size: " + text(segment.bytes.size()) +
               " bytes, total buffered: " + text(byteBuffer_.size()) + " bytes (" + text(byteBuffer_.percentOfPart()) +
               "%)");
  ++segmentIndex_;
  if (segment.kind == SegmentKind::separable && std::exchange(isAwaitingFinalSegment_, false)) {
    logger_.info("📦 Final media segment received - signaling completion");
  }
  if (restIsSent_) return;  // nothing may follow the final part
  if (opening_ == Opening::succeeded) {
    cutParts(PartKind::regular);
  } else {
    logger_.info("⏳ Multipart not ready yet, buffering data (total: " + text(byteBuffer_.size()) + " bytes)");
  }
}

void SegmentStream::discard() {
  if (!std::exchange(uploadBufferOverflowed_, true)) {
    logger_.error("⚠️ Upload buffer exceeds " + text(PartBuffer::maxByteBufferSize >> 20) +
                  "MB limit - uploads appear stalled. Stopping chunked upload to prevent OOM. Local backup will "
                  "continue.");
  }
  byteBuffer_.clear();
  bufferedBytes_ = 0;
  bytesAreMissing_ = true;
  logger_.error("⚠️ Cleared upload buffer. Recording continues to local backup file only.");
  ++segmentIndex_;
}

/// A completion that may be called on any queue and after this stream has gone.
template <class T, class Handler>
auto SegmentStream::onMain(Handler handler) {
  auto weak = weakly(this, std::move(handler));
  return [&main = main_, weak = std::move(weak)](Result<T> result) mutable {
    main.async([weak = std::move(weak), result = std::move(result)]() mutable { weak(std::move(result)); });
  };
}

// ---- opening the upload

void SegmentStream::openUpload() {
  openingTimer_.reset();
  if (!uploadDelegate_) {
    opening_ = Opening::failed;
    logger_.error("No upload delegate configured (neither Flutter bridge nor native delegate)");
    return report(VideoChunkError::uploadDelegateNotSet);
  }
  opening_ = Opening::underWay;
  logger_.info("Attempting to initialize multipart upload for " + recording_.fileName + " ");
  logger_.info("TeamId: " + recording_.teamId + ", FolderId: " + recording_.folderId +
               ", LocalBackup: " + orNone(recording_.localFile) + ", SegmentBackupId: " + orNone(segmentBackupId_));
  auto answered = onMain<InitializeUploadResponse>(
      [](SegmentStream& self, Result<InitializeUploadResponse> answer) { self.didOpen(std::move(answer)); });
  uploadDelegate_->initializeUpload({.teamId = recording_.teamId,
                                     .folderId = recording_.folderId,
                                     .fileName = recording_.fileName,
                                     .contentType = recording_.contentType,
                                     .localBackupPath = recording_.localFile,
                                     .segmentBackupId = segmentBackupId_},
                                    std::move(answered));
}

void SegmentStream::didOpen(Result<InitializeUploadResponse> answer) {
  if (!answer) return didFailToOpen(answer.error());
  opening_ = Opening::succeeded;
  logger_.info("✅ Multipart upload initialized successfully with fileId: " + answer->fileId);
  if (segmentBackupManager_) tasks_.start(segmentBackupManager_->updateFileId(answer->fileId));
  logger_.info("📤 Checking for buffered data to upload after initialization (buffer: " + text(byteBuffer_.size()) +
               " bytes)");
  cutParts(PartKind::buffered);
}

void SegmentStream::didFailToOpen(const Error& error) {
  opening_ = Opening::failed;
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

Task<void> SegmentStream::awaitOpening() {
  if (opening_ == Opening::scheduled) openUpload();
  while (opening_ == Opening::underWay) CO_TRY_VOID(co_await delay(main_, finalSegmentCheck));
  co_return success;
}

void SegmentStream::report(const Error& error) {
  if (observer_ != nullptr) observer_->chunkWriterDidFailWithError(error);
}

// ---- parts

void SegmentStream::cutParts(PartKind kind) {
  while (auto part = byteBuffer_.takePart()) {
    bufferedBytes_ = byteBuffer_.size();
    sendPart(*std::move(part), kind);
  }
}

void SegmentStream::sendPart(ByteChain part, PartKind kind) {
  const int number = ++uploadedPartNumber_;
  const std::size_t size = part.size();
  inFlightUploads_.insert(number);
  const std::string remaining = " bytes (remaining buffer: " + text(byteBuffer_.size()) + " bytes)";
  const std::string which = "part #" + std::to_string(number);
  if (kind == PartKind::regular) {
    logger_.info("🚀 Starting upload for " + which + " with exactly " + text(size) + remaining);
    logger_.info("Uploading video fMP4 " + which + ", size: " + text(size) + " bytes ");
  } else if (kind == PartKind::buffered) {
    logger_.info("🚀 Uploading buffered " + which + " with exactly " + text(size) + remaining);
  } else {
    logger_.info("🏁 Uploading final " + which + ", size: " + text(size) + " bytes (final part can be any size)");
  }
  auto sent = onMain<void>([number, size, kind](SegmentStream& self, const Result<void>& outcome) {
    self.didSendPart(number, size, kind, outcome);
  });
  uploadDelegate_->uploadChunk(std::move(part), number, std::move(sent));
}

void SegmentStream::didSendPart(int partNumber, std::size_t size, PartKind kind, const Result<void>& sent) {
  inFlightUploads_.erase(partNumber);
  if (kind == PartKind::final) finalPart_ = sent;
  const std::string number = "#" + std::to_string(partNumber);
  const std::string name = kind == PartKind::regular    ? "Part "
                           : kind == PartKind::buffered ? "Buffered part "
                                                        : "Final part ";
  if (sent) {
    totalBytesUploaded_ += static_cast<std::int64_t>(size);
    logger_.info("✅ " + name + number + " uploaded successfully (" + text(size) + " bytes)");
    if (kind == PartKind::final) logger_.info("📊 Total bytes uploaded: " + std::to_string(totalBytesUploaded_));
    if (observer_ != nullptr) observer_->chunkWriterDidUploadPart(partNumber);
    return;
  }
  bytesAreMissing_ = true;
  const std::string why = ": " + sent.error().description();
  if (kind == PartKind::regular) {
    logger_.error("❌ Real-time upload failed for part " + number + why);
  } else if (kind == PartKind::buffered) {
    logger_.error("❌ Failed to upload buffered part " + number + why);
  } else {
    logger_.error("❌ Final part " + number + " upload failed" + why);
  }
  report(sent.error());
}

// ---- the end

void SegmentStream::expectFinalSegment() { isAwaitingFinalSegment_ = true; }

Task<void> SegmentStream::awaitFinalSegment() {
  if (!isAwaitingFinalSegment_ && !isHandling_) {
    logger_.info("📦 Final segment already received, proceeding immediately");
    co_return success;
  }
  logger_.info("📦 Waiting up to " + fixedPoint(std::chrono::duration<double>(longestFinalSegmentWait).count(), 6) +
               "s for final segment...");
  // Segments that are here but not on disk yet take the time that the disk needs, and one of them may pass for the
  // final one while that still waits behind it; the limit is for those to come.
  for (Duration waited{}; isHandling_ || (isAwaitingFinalSegment_ && waited < longestFinalSegmentWait);) {
    if (!isHandling_) waited += finalSegmentCheck;
    CO_TRY_VOID(co_await delay(main_, finalSegmentCheck));
  }
  if (isAwaitingFinalSegment_) {
    logger_.error("⚠️ Timeout waiting for final segment, proceeding with available data (byteBuffer=" +
                  text(byteBuffer_.size()) + " bytes)");
  } else {
    logger_.info("📦 Final segment received after waiting");
  }
  co_return success;
}

Task<void> SegmentStream::settleBackup() {
  openingTimer_.reset();
  while (isHandling_) CO_TRY_VOID(co_await delay(main_, finalSegmentCheck));
  co_return success;
}

Task<void> SegmentStream::finishUpload() {
  if (opening_ != Opening::notTried) CO_TRY_VOID(co_await sendRest());
  CO_TRY_VOID(co_await awaitParts());
  co_return co_await completeUpload();
}

Task<void> SegmentStream::sendRest() {
  CO_TRY_VOID(co_await awaitOpening());
  restIsSent_ = true;
  logger_.info("📊 Post-wait stats: segmentIndex=" + std::to_string(segmentIndex_) +
               ", byteBuffer=" + text(byteBuffer_.size()) + " bytes");
  if (byteBuffer_.empty()) {
    logger_.info("No final data to upload after waiting");
  } else {
    logger_.info("📦 Uploading remaining " + text(byteBuffer_.size()) + " bytes as final part");
    const auto sent = co_await sendFinalPart();
    logger_.info(sent ? "Final upload completed successfully"
                      : "Failed to upload final part: " + sent.error().description());
  }
  co_return success;
}

Task<void> SegmentStream::sendFinalPart() {
  if (!uploadDelegate_) co_return VideoChunkError::uploadDelegateNotSet;
  // No upload, no part: it would end up in somebody else's.
  if (opening_ != Opening::succeeded) {
    bytesAreMissing_ = true;
    co_return Error(VideoChunkError::uploadFailed).withDescription("Upload failed: it was never opened");
  }
  sendPart(byteBuffer_.takeRest(), PartKind::final);
  bufferedBytes_ = 0;
  while (!finalPart_) CO_TRY_VOID(co_await delay(main_, finalSegmentCheck));
  co_return *finalPart_;
}

std::string SegmentStream::inFlightText() const {
  std::string numbers;
  for (const int number : inFlightUploads_) numbers += (numbers.empty() ? "" : ", ") + std::to_string(number);
  return "[" + numbers + "]";
}

Task<void> SegmentStream::awaitParts() {
  while (!inFlightUploads_.empty()) {
    logger_.info("Waiting for " + text(inFlightUploads_.size()) + " in-flight uploads to complete: " + inFlightText());
    CO_TRY_VOID(co_await delay(main_, partsCheck));
  }
  logger_.info("All in-flight uploads completed");
  co_return success;
}

Task<void> SegmentStream::completeUpload() {
  if (!uploadDelegate_) {
    logger_.error("No upload delegate available for multipart completion");
    co_return VideoChunkError::uploadDelegateNotSet;
  }
  logger_.info("Completing multipart upload... ");
  auto ask = [this](Completion<void> done) {
    uploadDelegate_->finalizeUpload([done](Result<void> outcome) { done(std::move(outcome)); });
  };
  auto finalized = co_await completed<void>(ask);
  if (finalized) {
    logger_.info("✅ Multipart upload completed successfully ");
    CO_TRY_VOID(co_await keepOrRemoveBackup());
  } else {
    logger_.error("❌ Failed to complete multipart upload: " + finalized.error().description());
    logger_.error("⚠️ Keeping segment backup for potential crash recovery");
  }
  segmentBackupManager_.reset();
  co_return finalized;
}

Task<void> SegmentStream::keepOrRemoveBackup() {
  if (!segmentBackupManager_) co_return success;
  if (bytesAreMissing_) {
    logger_.error("⚠️ The upload lacks parts of the recording - keeping segment backup for recovery");
    co_return success;
  }
  co_return co_await segmentBackupManager_->finalizeRecording();
}

}  // namespace quillbeam
