#include "chunking/SegmentStream.h"

#include <chrono>
#include <utility>

#include "base/Text.h"

namespace quillbeam {

namespace {

using namespace std::chrono_literals;

constexpr Duration longestFinalSegmentWait = 2s;
constexpr Duration finalSegmentCheck = 50ms;
constexpr std::int64_t lastTimedSegment = 4;

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

/// How far the timeline is covered: by every track that is in it.
std::optional<MediaTime> coveredEnd(const SegmentReport& report) {
  std::optional<MediaTime> end;
  for (const SegmentTrackReport& track : report.trackReports) {
    const MediaTime trackEnd = track.earliestPresentationTime + track.duration;
    end = end ? std::min(*end, trackEnd) : trackEnd;
  }
  return end;
}

/// How the backup remembers it.
FMP4SegmentInfo savedAs(const Segment& segment, std::int64_t index) {
  const auto size = static_cast<std::int64_t>(segment.bytes.size());
  if (segment.kind == SegmentKind::separable) return {.index = index, .type = "media", .size = size};
  return {.index = FMP4SegmentInfo::initializationIndex, .type = "init", .size = size};
}

}  // namespace

SegmentStream::SegmentStream(Platform& platform, StoredRecordings& storedRecordings, NotificationCenter& notifications,
                             const Logger& logger, const SegmentPolicy& policy, Recording recording)
    : platform_(platform),
      main_(platform.dispatch.main()),
      storedRecordings_(storedRecordings),
      logger_(logger),
      policy_(policy),
      recording_(std::move(recording)),
      upload_(main_, notifications, logger, policy, recording_),
      tasks_(main_) {}

SegmentSink SegmentStream::sink() {
  auto received = weakly(this, [](SegmentStream& self, Segment segment) { self.receive(std::move(segment)); });
  return [&main = main_, received](Segment segment) {
    main.async([received, segment = std::move(segment)]() mutable { received(std::move(segment)); });
  };
}

void SegmentStream::begin() {
  main_.assertCurrent();
  segmentBackupManager_ = std::make_unique<SegmentBackupManager>(platform_, storedRecordings_);
  const std::string id = segmentBackupManager_->startNewRecording({.teamId = recording_.teamId,
                                                                   .folderId = recording_.folderId,
                                                                   .fileName = recording_.fileName,
                                                                   .recordingType = recording_.type,
                                                                   .contentType = recording_.contentType});
  logger_.info(std::string(policy_.backupBegun) + id);
  upload_.begin(*segmentBackupManager_, id);
}

// ---- segments

void SegmentStream::receive(Segment segment) {
  main_.assertCurrent();
  upload_.announce();
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
  std::optional<FMP4SegmentInfo> saved;
  if (segmentBackupManager_) {
    const auto outcome = co_await segmentBackupManager_->saveSegment(segment.bytes, segment.kind, segmentIndex_);
    if (outcome) saved = savedAs(segment, segmentIndex_);
  }
  takeIn(segment, std::move(saved));
  co_return success;
}

void SegmentStream::logArrival(const Segment& segment) {
  const bool isInspected = policy_.inspection == SegmentPolicy::Inspection::timingAndFirstBox;
  const std::string index = std::to_string(segmentIndex_);
  const std::string size = text(segment.bytes.size());
  if (segment.kind == SegmentKind::initialization) {
    hasInitializationSegment_ = true;
    logger_.info(std::string(policy_.initializationReceived) + size + " bytes");
  } else {
    const bool isTimed = isInspected && segment.report && segmentIndex_ <= lastTimedSegment;
    const std::string timing = isTimed ? timingText(*segment.report) : std::string();
    if (!timing.empty()) logger_.info("Segment #" + index + " timing: " + timing);
    logger_.info(std::string(policy_.mediaReceived) + index + ", size: " + size + " bytes");
  }
  if (!isInspected) return;
  if (const auto type = firstBoxType(segment.bytes)) {
    logger_.debug([&] { return "Segment #" + index + " starts with box: " + *type; });
  }
}

void SegmentStream::takeIn(const Segment& segment, std::optional<FMP4SegmentInfo> saved) {
  const std::int64_t index = segmentIndex_;
  const bool isMedia = segment.kind == SegmentKind::separable;
  if (isMedia || policy_.indexes == SegmentPolicy::Indexes::countInitialization) ++segmentIndex_;
  if (segment.report) coveredEnd_ = coveredEnd(*segment.report);
  if (upload_.append(segment.bytes, std::move(saved)) == PartUpload::Taken::discarded) return;
  logger_.info(policy_.segmentBuffered({.index = index,
                                        .size = segment.bytes.size(),
                                        .totalBuffered = upload_.bufferedBytes(),
                                        .percentOfPart = upload_.percentOfPart()}));
  if (isMedia && std::exchange(isAwaitingFinalSegment_, false)) {
    logger_.info("📦 Final media segment received - signaling completion");
  }
  upload_.sendParts();
}

// ---- the end

void SegmentStream::expectFinalSegment(std::optional<MediaTime> end) {
  isAwaitingFinalSegment_ = true;
  expectedEnd_ = end;
}

Task<void> SegmentStream::awaitFinalSegment() {
  if (!isHandling_ && hasEverything()) {
    logger_.info("📦 Final segment already received, proceeding immediately");
    co_return success;
  }
  logger_.info("📦 Waiting up to " + fixedPoint(std::chrono::duration<double>(longestFinalSegmentWait).count(), 6) +
               "s for final segment...");
  // Segments that are here but not on disk yet take the time that the disk needs, and one of them may pass for the
  // final one while that still waits behind it; the limit is for those to come.
  for (Duration waited{}; isHandling_ || (!hasEverything() && waited < longestFinalSegmentWait);) {
    if (!isHandling_) waited += finalSegmentCheck;
    CO_TRY_VOID(co_await delay(main_, finalSegmentCheck));
  }
  if (hasEverything()) {
    logger_.info("📦 Final segment received after waiting");
  } else {
    logger_.error("⚠️ Timeout waiting for final segment, proceeding with available data (byteBuffer=" +
                  text(upload_.bufferedBytes()) + " bytes)");
  }
  co_return success;
}

/// A recording that ends exactly where a segment does has none after it.
bool SegmentStream::hasEverything() const {
  return !isAwaitingFinalSegment_ || (expectedEnd_ && coveredEnd_ && *coveredEnd_ >= *expectedEnd_);
}

Task<void> SegmentStream::awaitHandled() {
  while (isHandling_) CO_TRY_VOID(co_await delay(main_, finalSegmentCheck));
  co_return success;
}

Task<void> SegmentStream::finishUpload() {
  const bool hasWaited = segmentBackupManager_ && policy_.finalSegment == SegmentPolicy::FinalSegment::isAwaited;
  if (hasWaited) {
    logger_.info("📊 Post-wait stats: segmentIndex=" + std::to_string(segmentIndex_) +
                 ", byteBuffer=" + text(upload_.bufferedBytes()) + " bytes");
  }
  auto finished = co_await upload_.finish();
  if (finished) {
    CO_TRY_VOID(co_await keepOrRemoveBackup());
  } else {
    logger_.error("⚠️ Keeping segment backup for potential crash recovery");
  }
  segmentBackupManager_.reset();
  co_return finished;
}

void SegmentStream::writerFailed(const Error& error) {
  logger_.error("Failed to finish writing: " + error.description());
  upload_.noteMissingBytes(error);
}

Task<void> SegmentStream::keepOrRemoveBackup() {
  if (!segmentBackupManager_) co_return success;
  if (upload_.lacksBytes()) {
    logger_.error("⚠️ The upload lacks parts of the recording - keeping segment backup for recovery");
    co_return success;
  }
  CO_TRY_VOID(co_await segmentBackupManager_->finalizeRecording());
  if (!policy_.backupRemoved.empty()) logger_.info(policy_.backupRemoved);
  co_return success;
}

}  // namespace quillbeam
