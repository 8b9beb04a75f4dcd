#include "backup/StoredRecordings.h"

#include <algorithm>
#include <chrono>
#include <tuple>

#include "backup/BackupSweep.h"

namespace quillbeam {

namespace {

/// Whether an identifier from outside may become part of a path.
bool isPlainName(const std::string& id) {
  return !id.empty() && id != "." && id != ".." && id.find_first_of(std::string("/\0", 2)) == std::string::npos;
}

std::string joinedText(const std::vector<Path>& paths) {
  std::string text;
  for (const Path& path : paths) text += (text.empty() ? "" : ", ") + path;
  return text;
}

}  // namespace

StoredRecordings::StoredRecordings(Platform& platform)
    : platform_(platform),
      files_(platform.files),
      logger_(platform.systemLog, "io.quillbeam.app", "SegmentBackupManager"),
      directories_(platform.files, platform.places, logger_) {}

std::vector<std::string> StoredRecordings::entries(const Path& location) {
  if (!files_.exists(location)) return {};
  auto names = files_.list(location);
  if (names) return *std::move(names);
  logger_.error("Failed to enumerate " + location + ": " + names.error().description());
  return {};
}

std::vector<SegmentBackupMetadata> StoredRecordings::getIncompleteRecordings() {
  std::vector<SegmentBackupMetadata> found;
  for (const Path& location : directories_.getAllRecordingsDirectories()) {
    for (const std::string& entry : entries(location)) {
      const Path directory = joined(location, entry);
      if (!files_.exists(joined(directory, metadataFileName))) continue;
      auto metadata = readMetadata(files_, directory);
      if (!metadata) {
        logger_.error("Failed to parse metadata for " + entry + ": " + metadata.error().description());
      } else if (metadata->isRecoverable()) {
        logger_.info("Found recoverable recording: " + metadata->id + " (" + std::to_string(metadata->segmentCount()) +
                     " segments) at " + directory);
        found.push_back(*std::move(metadata));
      }
    }
  }
  std::ranges::sort(found, [](const SegmentBackupMetadata& a, const SegmentBackupMetadata& b) {
    return std::tie(b.lastModified, a.id) < std::tie(a.lastModified, b.id);
  });
  return found;
}

std::optional<Path> StoredRecordings::findRecordingDirectory(const std::string& id) {
  const bool mayBeADirectory = isPlainName(id);
  for (const Path& location : directories_.getAllRecordingsDirectories()) {
    if (!mayBeADirectory || !files_.exists(joined(joined(location, id), metadataFileName))) continue;
    logger_.info("Found recording by direct UUID match: " + id);
    return joined(location, id);
  }
  logger_.info("Direct UUID match failed for " + id + ", scanning by fileId...");
  if (auto directory = findByFileId(id)) return directory;
  logger_.info("Recording not found by UUID or fileId: " + id);
  return std::nullopt;
}

std::optional<Path> StoredRecordings::findByFileId(const std::string& fileId) {
  for (const Path& location : directories_.getAllRecordingsDirectories()) {
    for (const std::string& entry : entries(location)) {
      const Path directory = joined(location, entry);
      const auto metadata = readMetadata(files_, directory);
      if (!metadata || metadata->fileId != fileId) continue;
      logger_.info("Found recording by fileId match: " + fileId + " -> UUID: " + metadata->id);
      return directory;
    }
  }
  return std::nullopt;
}

std::optional<Path> StoredRecordings::recoverRecording(const std::string& id) {
  const auto directory = findRecordingDirectory(id);
  if (!directory) {
    logger_.error("Metadata not found for recording " + id + " in any storage location");
    logger_.error("Searched directories: " + joinedText(directories_.getAllRecordingsDirectories()));
    return std::nullopt;
  }
  logger_.info("Found recording at: " + *directory);
  return recover(*directory, id);
}

std::optional<Path> StoredRecordings::recover(const Path& directory, const std::string& id) {
  if (!files_.exists(joined(directory, metadataFileName))) {
    logger_.error("Failed to read metadata for recording " + id);
    return std::nullopt;
  }
  auto metadata = readMetadata(files_, directory);
  if (!metadata) {
    logger_.error("Failed to decode metadata for recording " + id);
    return std::nullopt;
  }
  logger_.info("Recovering recording: " + metadata->id + " (type: " + toText(metadata->recordingType) + ")");
  const auto output = outputPath(*metadata, id);
  if (!output || !rebuild(directory, *std::move(metadata), *output)) return std::nullopt;
  return output;
}

std::optional<Path> StoredRecordings::outputPath(const SegmentBackupMetadata& metadata, const std::string& id) {
  const auto directory = inApplicationSupport(platform_.places, "recovered_recordings");
  if (!directory) {
    logger_.error("Failed to get Application Support directory");
    return std::nullopt;
  }
  const auto created = files_.createDirectories(*directory);
  if (!created) {
    logger_.error("Failed to create recovered_recordings directory: " + created.error().description());
    return std::nullopt;
  }
  const bool isVideo = metadata.recordingType == SegmentBackupRecordingType::video;
  // A service's file id that could lead out of the directory is no name for a file.
  const std::string& name = isPlainName(id) ? id : metadata.id;
  return joined(*directory, "recovered_" + name + (isVideo ? ".mp4" : ".m4a"));
}

Result<std::optional<std::int64_t>> StoredRecordings::appendFile(const Path& file, const Path& output) {
  const auto info = files_.info(file);
  if (!info) return std::nullopt;
  if (files_.appendCopy({.file = file, .count = info->size}, output)) return info->size;
  // Which of the two files it was, shows when they are touched one by one.
  auto bytes = files_.read(file);
  if (!bytes) return std::nullopt;
  const auto size = static_cast<std::int64_t>(bytes->size());
  TRY_VOID(files_.append(output, ByteChain(*std::move(bytes)), Durability::cached));
  return size;
}

bool StoredRecordings::rebuild(const Path& directory, SegmentBackupMetadata metadata, const Path& output) {
  std::ignore = files_.remove(output);
  const auto failed = [&] {
    logger_.error("Failed to create output stream");
    return false;
  };
  const auto init = appendFile(joined(directory, "init.mp4"), output);
  if (!init) return failed();
  if (!*init) {
    logger_.error("Failed to read init segment");
    return false;
  }
  std::int64_t total = **init;
  logger_.info("Wrote init segment: " + std::to_string(total) + " bytes");

  std::erase_if(metadata.segments, [](const FMP4SegmentInfo& segment) { return !segment.isMedia(); });
  std::ranges::sort(metadata.segments, {}, &FMP4SegmentInfo::index);
  int segments = 0;
  for (const FMP4SegmentInfo& segment : metadata.segments) {
    const auto appended = appendFile(joined(directory, segmentFileName(segment)), output);
    if (!appended) return failed();
    if (!*appended) {
      logger_.error("Failed to read segment " + std::to_string(segment.index) + ", skipping");
      continue;
    }
    total += **appended;
    ++segments;
  }
  if (!files_.append(output, {}, Durability::durable)) return failed();
  logger_.info("Successfully recovered recording: " + metadata.id + " (" + std::to_string(total) + " bytes, " +
               std::to_string(segments) + " segments)");
  return true;
}

void StoredRecordings::cleanupRecording(const std::string& id) { std::ignore = remove(id); }

bool StoredRecordings::remove(const std::string& id) {
  const auto directory = findRecordingDirectory(id);
  if (!directory) {
    logger_.info("Recording " + id + " not found - may already be cleaned up");
    return false;
  }
  if (isProtected(std::string(fileName(*directory)))) {
    logger_.error("Failed to cleanup recording " + id + ": it is being recorded");
    return false;
  }
  const auto removed = files_.remove(*directory);
  if (!removed) {
    logger_.error("Failed to cleanup recording " + id + ": " + removed.error().description());
    return false;
  }
  logger_.info("Cleaned up recording: " + id + " at " + *directory);
  return true;
}

void StoredRecordings::cleanupOldRecordings(int olderThanDays, int maxCount) {
  const Date cutOff = platform_.dispatch.now() - std::chrono::days(olderThanDays);
  int old = 0;
  for (const SegmentBackupMetadata& recording : getIncompleteRecordings()) {
    if (recording.lastModified < cutOff && remove(recording.id)) ++old;
  }
  const auto left = getIncompleteRecordings();
  int excess = 0;
  for (std::size_t at = static_cast<std::size_t>(maxCount); at < left.size(); ++at) {
    if (remove(left[at].id)) ++excess;
  }
  if (left.size() > static_cast<std::size_t>(maxCount)) {
    logger_.info("Enforced max count limit: kept " + std::to_string(maxCount) + ", deleted " + std::to_string(excess));
  }
  if (old + excess > 0) logger_.info("Cleaned up " + std::to_string(old + excess) + " old/excess recordings");
}

void StoredRecordings::sweepLeftovers() {
  BackupSweep sweep(files_, logger_, [this](const std::string& name) { return isProtected(name); });
  for (const Path& location : directories_.getAllRecordingsDirectories()) sweep.run(location);
}

void StoredRecordings::protect(const std::string& recordingId) {
  MutexLock lock(mutex_);
  protected_.insert(recordingId);
}

void StoredRecordings::release(const std::string& recordingId) {
  MutexLock lock(mutex_);
  protected_.erase(recordingId);
}

bool StoredRecordings::isProtected(const std::string& recordingId) {
  MutexLock lock(mutex_);
  return protected_.contains(recordingId);
}

}  // namespace quillbeam
