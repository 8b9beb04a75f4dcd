#include "backup/SegmentBackupMetadata.h"

#include <algorithm>
#include <utility>

namespace quillbeam {

std::string toText(SegmentBackupRecordingType type) {
  switch (type) {
    case SegmentBackupRecordingType::video:
      return "video";
    case SegmentBackupRecordingType::audioOnly:
      return "audioOnly";
  }
  std::unreachable();
}

std::optional<SegmentBackupRecordingType> fromText(std::type_identity<SegmentBackupRecordingType>,
                                                   std::string_view text) {
  for (const auto type : {SegmentBackupRecordingType::video, SegmentBackupRecordingType::audioOnly}) {
    if (toText(type) == text) return type;
  }
  return std::nullopt;
}

int SegmentBackupMetadata::segmentCount() const {
  return static_cast<int>(std::ranges::count_if(segments, &FMP4SegmentInfo::isMedia));
}

bool SegmentBackupMetadata::isRecoverable() const {
  return std::ranges::any_of(segments, &FMP4SegmentInfo::isInitialization) && segmentCount() > 0;
}

std::string segmentFileName(const FMP4SegmentInfo& segment) {
  if (segment.isInitialization()) return "init.mp4";
  std::string digits = std::to_string(segment.index);
  digits.insert(0, 4 - std::min<std::size_t>(digits.size(), 4), '0');
  return "segment_" + digits + ".mp4";
}

}  // namespace quillbeam
