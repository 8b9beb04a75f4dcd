#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "base/Record.h"

namespace quillbeam {

/// One segment on disk.
struct FMP4SegmentInfo {
  static constexpr std::int64_t initializationIndex = -1;

  std::int64_t index = 0;  ///< the writer's count when it arrived; -1 for the initialization
  std::string type;        ///< "init" or "media"
  std::int64_t size = 0;   ///< bytes

  bool isInitialization() const { return type == "init"; }
  bool isMedia() const { return type == "media"; }
  static constexpr auto fields() {
    return std::tuple(field("index", &FMP4SegmentInfo::index), field("type", &FMP4SegmentInfo::type),
                      field("size", &FMP4SegmentInfo::size));
  }
};

enum class SegmentBackupRecordingType { video, audioOnly };
std::string toText(SegmentBackupRecordingType type);
std::optional<SegmentBackupRecordingType> fromText(std::type_identity<SegmentBackupRecordingType>,
                                                   std::string_view text);

/// Which recording a directory of segments belongs to, and what lies there: its "metadata.json".
struct SegmentBackupMetadata {
  std::string id;
  std::optional<std::string> fileId;  ///< the upload service's, once it has named the file
  std::string teamId;
  std::string folderId;
  std::string fileName;
  SegmentBackupRecordingType recordingType = SegmentBackupRecordingType::video;
  std::string contentType;
  std::vector<FMP4SegmentInfo> segments;  ///< in the order in which they were saved
  Date createdAt;
  Date lastModified;

  static constexpr auto fields() {
    using Metadata = SegmentBackupMetadata;
    return std::tuple(field("id", &Metadata::id), field("fileId", &Metadata::fileId),
                      field("teamId", &Metadata::teamId), field("folderId", &Metadata::folderId),
                      field("fileName", &Metadata::fileName), field("recordingType", &Metadata::recordingType),
                      field("contentType", &Metadata::contentType), field("segments", &Metadata::segments),
                      field("createdAt", &Metadata::createdAt), field("lastModified", &Metadata::lastModified));
  }

  /// Media segments; the initialization is not counted.
  int segmentCount() const;
  /// An initialization and at least one media segment are there.
  bool isRecoverable() const;
};

/// "init.mp4"; "segment_0001.mp4", four digits or more.
std::string segmentFileName(const FMP4SegmentInfo& segment);

}  // namespace quillbeam
