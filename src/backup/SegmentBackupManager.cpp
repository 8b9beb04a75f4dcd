#include "backup/SegmentBackupManager.h"

#include <utility>

namespace quillbeam {

namespace {

Error notRecording() { return Error(CommonError::invalidArgument).withDescription("No segment backup is active"); }

}  // namespace

SegmentBackupManager::SegmentBackupManager(Platform& platform, StoredRecordings& storedRecordings)
    : platform_(platform),
      files_(platform.files),
      storedRecordings_(storedRecordings),
      logger_(platform.systemLog, "io.quillbeam.app", "SegmentBackupManager"),
      segmentQueue_(platform.dispatch.makeSerialQueue("io.quillbeam.segment.backup")) {}

SegmentBackupManager::~SegmentBackupManager() {
  if (recordingId_) storedRecordings_.release(*recordingId_);
}

std::string SegmentBackupManager::startNewRecording(SegmentBackupDescription description) {
  const Date now = platform_.dispatch.now();
  SegmentBackupMetadata metadata{.id = platform_.random.uuid().string(),
                                 .teamId = std::move(description.teamId),
                                 .folderId = std::move(description.folderId),
                                 .fileName = std::move(description.fileName),
                                 .recordingType = description.recordingType,
                                 .contentType = std::move(description.contentType),
                                 .createdAt = now,
                                 .lastModified = now};
  const std::string id = metadata.id;
  logger_.info("Starting segment backup for: " + metadata.fileName + " (type: " + toText(metadata.recordingType) + ")");
  recordingId_ = id;
  storedRecordings_.protect(id);
  segmentQueue_->async([this, metadata = std::move(metadata)]() mutable {
    segmentQueue_->assertCurrent();
    metadata_ = std::move(metadata);
    if (!create()) metadata_.reset();
  });
  return id;
}

Result<void> SegmentBackupManager::create() {
  segmentQueue_->assertCurrent();
  RecordingDirectories directories(files_, platform_.places, logger_);
  const Path path = joined(directories.getRecordingsDirectory(), metadata_->id);
  const auto created = files_.createDirectories(path);
  if (!created) {
    logger_.error("Failed to create recording directory: " + created.error().description());
    return created;
  }
  logger_.info("Created segment backup directory: " + path);
  directory_ = path;
  saveMetadata();
  return success;
}

Task<void> SegmentBackupManager::saveSegment(ByteChain bytes, SegmentKind kind, std::int64_t segmentIndex) {
  auto work = [this, bytes = std::move(bytes), kind, segmentIndex] { return save(bytes, kind, segmentIndex); };
  co_return co_await runOn<void>(*segmentQueue_, std::move(work));
}

Result<void> SegmentBackupManager::save(const ByteChain& bytes, SegmentKind kind, std::int64_t segmentIndex) {
  segmentQueue_->assertCurrent();
  if (!metadata_ || !directory_) {
    logger_.error("No active recording for segment backup");
    return notRecording();
  }
  const auto size = static_cast<std::int64_t>(bytes.size());
  switch (kind) {
    case SegmentKind::initialization:
      logger_.info("Saving initialization segment, size: " + std::to_string(size) + " bytes");
      return write(bytes, {.index = FMP4SegmentInfo::initializationIndex, .type = "init", .size = size});
    case SegmentKind::separable:
      logger_.info("Saving media segment #" + std::to_string(segmentIndex) + ", size: " + std::to_string(size) +
                   " bytes");
      return write(bytes, {.index = segmentIndex, .type = "media", .size = size});
  }
  logger_.error("Unknown segment type, skipping");
  return notRecording();
}

Result<void> SegmentBackupManager::write(const ByteChain& bytes, const FMP4SegmentInfo& segment) {
  segmentQueue_->assertCurrent();
  const std::string name = segmentFileName(segment);
  const Path path = joined(*directory_, name);
  auto written = files_.writeAtomically(path, bytes);
  if (!written) {
    logger_.error("❌ Failed to save segment " + name + ": " + written.error().description());
    return written;
  }
  if (files_.exists(path)) {
    logger_.info("✅ Segment written successfully: " + name);
  } else {
    logger_.error("❌ Segment file not found after write: " + name);
  }
  metadata_->segments.push_back(segment);
  metadata_->lastModified = platform_.dispatch.now();
  saveMetadata();
  return success;
}

Task<ByteChain> SegmentBackupManager::readSegment(FMP4SegmentInfo segment) {
  auto work = [this, segment = std::move(segment)] { return read(segment); };
  co_return co_await runOn<ByteChain>(*segmentQueue_, std::move(work));
}

Result<ByteChain> SegmentBackupManager::read(const FMP4SegmentInfo& segment) {
  segmentQueue_->assertCurrent();
  if (!directory_) return notRecording();
  TRY(Bytes bytes, files_.read(joined(*directory_, segmentFileName(segment))));
  if (static_cast<std::int64_t>(bytes.size()) != segment.size) return FilesError::endOfFile;
  return ByteChain(std::move(bytes));
}

void SegmentBackupManager::saveMetadata() {
  segmentQueue_->assertCurrent();
  const auto written = writeMetadata(files_, *directory_, *metadata_);
  if (!written) logger_.error("Failed to save metadata: " + written.error().description());
}

Task<void> SegmentBackupManager::updateFileId(std::string fileId) {
  auto work = [this, fileId]() -> Result<void> {
    setFileId(fileId);
    return success;
  };
  co_return co_await runOn<void>(*segmentQueue_, std::move(work));
}

void SegmentBackupManager::setFileId(const std::string& fileId) {
  segmentQueue_->assertCurrent();
  if (!metadata_ || !directory_) return logger_.error("Cannot update fileId - no active recording metadata");
  metadata_->fileId = fileId;
  saveMetadata();
  logger_.info("Updated segment backup metadata with fileId: " + fileId);
}

Task<void> SegmentBackupManager::finalizeRecording() {
  if (const auto id = std::exchange(recordingId_, std::nullopt)) storedRecordings_.release(*id);
  auto work = [this]() -> Result<void> {
    removeRecording();
    return success;
  };
  co_return co_await runOn<void>(*segmentQueue_, work);
}

void SegmentBackupManager::removeRecording() {
  segmentQueue_->assertCurrent();
  if (!metadata_) return logger_.info("No recording to finalize");
  logger_.info("Finalizing recording " + metadata_->id + " - cleaning up backup segments");
  storedRecordings_.cleanupRecording(metadata_->id);
  metadata_.reset();
  directory_.reset();
}

}  // namespace quillbeam
