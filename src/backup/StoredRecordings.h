#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "backup/RecordingDirectories.h"
#include "backup/SegmentBackupMetadata.h"
#include "base/Mutex.h"
#include "platform/Platform.h"

namespace quillbeam {

/// The segment backups on disk, whoever wrote them: found, rebuilt into playable files, removed. Works on the disk
/// alone; calls block and may come from any queue. What a recording of this process is still writing is listed and can
/// be recovered, but never removed.
class StoredRecordings {
 public:
  explicit StoredRecordings(Platform& platform);

  /// Those with an initialization and media, the one that was written last first.
  std::vector<SegmentBackupMetadata> getIncompleteRecordings();
  /// `id` is a recording's, or the upload service's for its file.
  std::optional<Path> findRecordingDirectory(const std::string& id);
  /// The segments as one file, "recovered_recordings/recovered_<id>.mp4" or ".m4a"; nullopt when that is not possible.
  /// Segments that cannot be read are left out. The backup stays.
  std::optional<Path> recoverRecording(const std::string& id);
  void cleanupRecording(const std::string& id);
  /// Removes recoverable recordings older than that, then all but the newest `maxCount`.
  void cleanupOldRecordings(int olderThanDays, int maxCount);

  /// For the launch: brings into order what processes left that died (`BackupSweep`).
  void sweepLeftovers();

  /// While a recording is being written, nothing here removes it.
  void protect(const std::string& recordingId);
  void release(const std::string& recordingId);

 private:
  std::vector<std::string> entries(const Path& location);
  std::optional<Path> findByFileId(const std::string& fileId);
  std::optional<Path> recover(const Path& directory, const std::string& id);
  std::optional<Path> outputPath(const SegmentBackupMetadata& metadata, const std::string& id);
  /// A file's bytes behind the output's; nullopt when they cannot be read, an error when they cannot be written.
  Result<std::optional<std::int64_t>> appendFile(const Path& file, const Path& output);
  bool rebuild(const Path& directory, SegmentBackupMetadata metadata, const Path& output);
  bool isProtected(const std::string& recordingId);
  bool remove(const std::string& id);

  Platform& platform_;
  Files& files_;
  const Logger logger_;
  RecordingDirectories directories_;
  Mutex mutex_;
  std::set<std::string> protected_ GUARDED_BY(mutex_);
};

}  // namespace quillbeam
