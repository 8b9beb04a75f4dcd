#include "backup/BackupSweep.h"

#include <algorithm>
#include <charconv>

namespace quillbeam {

namespace {

constexpr std::string_view mediaPrefix = "segment_";

bool isMediaFile(const std::string& name) { return name.starts_with(mediaPrefix) && name.ends_with(".mp4"); }

/// The segment that a file's name stands for; nullopt when it is no segment's.
std::optional<FMP4SegmentInfo> segmentOfFile(const std::string& name) {
  FMP4SegmentInfo segment{.index = FMP4SegmentInfo::initializationIndex, .type = "init"};
  if (isMediaFile(name)) {
    segment.type = "media";
    std::from_chars(name.data() + mediaPrefix.size(), name.data() + name.size(), segment.index);
  }
  return segmentFileName(segment) == name ? std::optional(segment) : std::nullopt;
}

}  // namespace

void BackupSweep::run(const Path& location) {
  const auto entries = files_.list(location);
  if (!entries) return;
  for (const std::string& entry : *entries) {
    if (!isProtected_(entry)) tidy(joined(location, entry));
  }
}

void BackupSweep::tidy(const Path& directory) {
  const auto names = files_.list(directory);
  if (!names) return;
  if (std::ranges::any_of(*names, isMediaFile)) return adopt(directory, *names);
  if (files_.remove(directory)) logger_.info("Removed what is left of a recording without media: " + directory);
}

void BackupSweep::adopt(const Path& directory, const std::vector<std::string>& names) {
  auto metadata = readMetadata(files_, directory);
  if (!metadata) return;
  const bool isChanged =
      std::ranges::count_if(names, [&](const std::string& file) { return name(directory, file, *metadata); }) > 0;
  if (!isChanged) return;
  const auto written = writeMetadata(files_, directory, *metadata);
  if (!written) logger_.error("Failed to save metadata: " + written.error().description());
}

bool BackupSweep::name(const Path& directory, const std::string& file, SegmentBackupMetadata& metadata) {
  auto segment = segmentOfFile(file);
  if (!segment) return false;
  const auto isNamed = [&](const FMP4SegmentInfo& known) {
    return known.index == segment->index && known.type == segment->type;
  };
  if (std::ranges::any_of(metadata.segments, isNamed)) return false;
  const auto info = files_.info(joined(directory, file));
  if (!info) return false;
  segment->size = info->size;
  metadata.segments.push_back(*segment);
  logger_.info("Found a segment that the metadata did not name yet: " + joined(directory, file));
  return true;
}

}  // namespace quillbeam
