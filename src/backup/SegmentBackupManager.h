#pragma once

#include <memory>
#include <optional>
#include <string>

#include "backup/SegmentBackupMetadata.h"
#include "backup/StoredRecordings.h"
#include "base/ByteChain.h"
#include "base/Task.h"
#include "platform/Platform.h"
#include "platform/media/SegmentWriter.h"

namespace quillbeam {

/// What a backup is made of.
struct SegmentBackupDescription {
  std::string teamId;
  std::string folderId;
  std::string fileName;
  SegmentBackupRecordingType recordingType = SegmentBackupRecordingType::video;
  std::string contentType;
};

/// Keeps a copy of every segment of one recording on disk until its upload has completed. A segment is on the device
/// before the metadata names it. Disk work happens in order on a queue of its own; called on the main queue. Errors are
/// logged and never reach the recording; the results only say what they cost.
///
///     idle ──startNewRecording──► recording ──finalizeRecording──► idle
class SegmentBackupManager {
 public:
  SegmentBackupManager(Platform& platform, StoredRecordings& storedRecordings);
  /// Without finalisation the files stay, for a recovery.
  ~SegmentBackupManager();

  /// The recording's id, for whoever wants to link to it, at once; its directory and first metadata follow on the disk
  /// queue, before any segment.
  std::string startNewRecording(SegmentBackupDescription description);
  /// Resumes when the segment is on the device and named, or with the reason why it is not.
  Task<void> saveSegment(ByteChain bytes, SegmentKind kind, std::int64_t segmentIndex);
  /// The bytes of a segment that was saved; `FilesError::endOfFile` when its file is not what was written.
  Task<ByteChain> readSegment(FMP4SegmentInfo segment);
  Task<void> updateFileId(std::string fileId);
  /// Removes the recording's files.
  Task<void> finalizeRecording();

 private:
  Result<void> create();
  Result<void> save(const ByteChain& bytes, SegmentKind kind, std::int64_t segmentIndex);
  Result<void> write(const ByteChain& bytes, const FMP4SegmentInfo& segment);
  Result<ByteChain> read(const FMP4SegmentInfo& segment);
  void saveMetadata();
  void setFileId(const std::string& fileId);
  void removeRecording();

  Platform& platform_;
  Files& files_;
  StoredRecordings& storedRecordings_;
  const Logger logger_;
  std::optional<std::string> recordingId_;  // main's copy, for the end
  std::optional<Path> directory_ CONFINED_TO(*segmentQueue_);
  std::optional<SegmentBackupMetadata> metadata_ CONFINED_TO(*segmentQueue_);
  std::unique_ptr<DispatchQueue> segmentQueue_;  // last: it runs what waits on it before the rest goes
};

}  // namespace quillbeam
