#pragma once

#include <atomic>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "PartWriter.h"
#include "UploadFolder.h"

namespace quillbeam::service {

/// Where a file goes.
struct Destination {
  std::string team;
  std::string folder;
};

struct UploadIds {
  std::string fileId;
  std::string uploadId;
};

/// Uploads and what became of them, all on disk, so that a restart changes nothing:
///   uploads/{fileId}/{uploadId}/   upload.json and the parts, as long as they are not assembled
///   files/{fileId}, files/{fileId}.json   an assembled file and what is known of it; the latter comes last
/// What is not there is refused with 404. For use by several threads.
class UploadStore {
 public:
  explicit UploadStore(std::filesystem::path root);

  UploadIds begin(const Destination& destination, const std::string& contentType,
                  const std::optional<std::string>& source);
  /// Refuses unless the upload still takes parts.
  void requireOpen(const UploadIds& ids) const;
  void requireOpen(const Destination& destination, const UploadIds& ids) const;
  /// Refuses unless the file is being uploaded or assembled.
  void requireFile(const Destination& destination, const std::string& fileId) const;

  std::unique_ptr<PartWriter> openPart(const UploadIds& ids, int part);
  /// The part counts from here on, instead of an earlier one of its number.
  void storePart(const UploadIds& ids, int part, PartWriter& written);

  /// Makes the file of the parts; `file` is what the client tells about it. Nothing more happens when it is made.
  void finalize(const Destination& destination, const UploadIds& ids, const nlohmann::json& file);
  void abort(const Destination& destination, const UploadIds& ids);

 private:
  UploadFolder folderOf(const UploadIds& ids) const;
  std::filesystem::path recordOfFile(const std::string& fileId) const { return files_ / (fileId + ".json"); }
  bool isAssembled(const UploadIds& ids) const;
  nlohmann::json requireKnown(const Destination& destination, const UploadIds& ids) const;
  nlohmann::ordered_json assemble(const UploadIds& ids, const std::vector<std::filesystem::path>& parts) const;
  std::mutex& mutexOf(const UploadIds& ids);

  std::filesystem::path uploads_;
  std::filesystem::path files_;
  std::atomic<unsigned> partials_ = 0;
  std::mutex mutex_;
  std::map<std::string, std::mutex> uploadMutexes_;  ///< by upload: its parts change their place under it
};

}  // namespace quillbeam::service
