#pragma once

#include <functional>
#include <string>

#include "backup/RecordingDirectories.h"
#include "backup/SegmentBackupMetadata.h"

namespace quillbeam {

/// Brings one place of backups into order after processes that died: a segment that reached the disk but not yet the
/// metadata is named there, and what was left without any media, which nobody would ever be shown, is removed. What
/// cannot be read is left alone. Blocks.
class BackupSweep {
 public:
  /// `isProtected`: whether a live recording owns the directory of that name.
  BackupSweep(Files& files, const Logger& logger, std::function<bool(const std::string&)> isProtected)
      : files_(files), logger_(logger), isProtected_(std::move(isProtected)) {}

  void run(const Path& location);

 private:
  void tidy(const Path& directory);
  void adopt(const Path& directory, const std::vector<std::string>& names);
  bool name(const Path& directory, const std::string& file, SegmentBackupMetadata& metadata);

  Files& files_;
  const Logger& logger_;
  const std::function<bool(const std::string&)> isProtected_;
};

}  // namespace quillbeam
