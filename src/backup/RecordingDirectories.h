#pragma once

#include <vector>

#include "backup/SegmentBackupMetadata.h"
#include "base/Result.h"
#include "platform/Files.h"
#include "platform/Logging.h"
#include "platform/Places.h"

namespace quillbeam {

/// Where segment backups lie: "segment_recordings" in the user's application data, or, when nothing can be written
/// there, among the caches, or in the temporary directory. Calls block; any queue.
class RecordingDirectories {
 public:
  RecordingDirectories(Files& files, const Places& places, const Logger& logger)
      : files_(files), places_(places), logger_(logger) {}

  /// For a new recording; looked for afresh each time.
  Path getRecordingsDirectory();
  /// Every place that may have been used, in that order.
  std::vector<Path> getAllRecordingsDirectories() const;

 private:
  Result<void> tryWriting(const Path& directory);

  Files& files_;
  const Places& places_;
  const Logger& logger_;
};

inline constexpr std::string_view metadataFileName = "metadata.json";

/// Reads and writes the metadata of the recording in `directory`.
Result<SegmentBackupMetadata> readMetadata(Files& files, const Path& directory);
Result<void> writeMetadata(Files& files, const Path& directory, const SegmentBackupMetadata& metadata);

}  // namespace quillbeam
