#include "backup/RecordingDirectories.h"

#include "base/Json.h"

namespace quillbeam {

namespace {

constexpr std::string_view recordingsSubdirectory = "segment_recordings";

Path below(const Path& base) { return joined(joined(base, bundleIdentifier), recordingsSubdirectory); }

}  // namespace

Path RecordingDirectories::getRecordingsDirectory() {
  if (!places_.applicationSupport.empty()) {
    const Path path = below(places_.applicationSupport);
    const auto written = tryWriting(path);
    if (written) {
      logger_.info("Segment recordings directory (Application Support): " + path);
      return path;
    }
    logger_.error("Application Support not writable: " + written.error().description());
  }
  if (!places_.caches.empty()) {
    const Path path = below(places_.caches);
    logger_.info("Segment recordings directory (Caches fallback): " + path);
    return path;
  }
  const Path path = below(places_.temporary);
  logger_.info("Using temp directory for segment recordings (not ideal for crash recovery): " + path);
  return path;
}

Result<void> RecordingDirectories::tryWriting(const Path& directory) {
  const Path test = joined(directory, ".write_test");
  TRY_VOID(files_.createDirectories(test));
  const auto removed = files_.remove(test);
  // A sweep at launch may have been faster: what is gone could be made.
  if (!removed && files_.exists(test)) return removed;
  return success;
}

std::vector<Path> RecordingDirectories::getAllRecordingsDirectories() const {
  std::vector<Path> directories;
  for (const Path& base : {places_.applicationSupport, places_.caches}) {
    if (!base.empty()) directories.push_back(below(base));
  }
  directories.push_back(below(places_.temporary));
  return directories;
}

Result<SegmentBackupMetadata> readMetadata(Files& files, const Path& directory) {
  TRY(const Bytes bytes, files.read(joined(directory, metadataFileName)));
  TRY(const Value value, parseJson(std::string(bytes.begin(), bytes.end())));
  return fromValue<SegmentBackupMetadata>(value);
}

Result<void> writeMetadata(Files& files, const Path& directory, const SegmentBackupMetadata& metadata) {
  TRY(const std::string text, toJson(toValue(metadata)));
  return files.writeAtomically(joined(directory, metadataFileName), ByteChain(Bytes(text.begin(), text.end())));
}

}  // namespace quillbeam
