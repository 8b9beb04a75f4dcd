#pragma once

#include <optional>
#include <string>

#include "backup/SegmentBackupMetadata.h"
#include "platform/Files.h"

namespace quillbeam {

/// Which recording is uploaded while it runs, and where it belongs.
struct ChunkedRecording {
  std::string teamId;
  std::string folderId;
  std::string fileName;
  std::string contentType;
  SegmentBackupRecordingType type = SegmentBackupRecordingType::video;
  std::optional<Path> localFile;
};

}  // namespace quillbeam
