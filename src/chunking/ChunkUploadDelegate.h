#pragma once

#include <functional>
#include <optional>
#include <string>

#include "base/ByteChain.h"
#include "base/Result.h"

namespace quillbeam {

/// What the service called the new file.
struct InitializeUploadResponse {
  std::string fileId;
};

/// What an upload is opened with.
struct UploadDescription {
  std::string teamId;
  std::string folderId;
  std::string fileName;
  std::string contentType;
  std::optional<std::string> localBackupPath;  ///< the finished local file, for whoever shows the recording
  std::optional<std::string> segmentBackupId;  ///< the segments kept on disk until the upload has completed
};

/// Where a recording's parts go. Each operation answers exactly once, success or failure, on whatever queue it likes.
/// Called on the main queue.
class ChunkUploadDelegate {
 public:
  using Initialized = std::move_only_function<void(Result<InitializeUploadResponse>)>;
  using Done = std::move_only_function<void(Result<void>)>;

  virtual ~ChunkUploadDelegate() = default;

  virtual void initializeUpload(UploadDescription description, Initialized completion) = 0;
  /// `partNumber` counts from 1. Success: the bytes are in safe hands, though not at the service yet.
  virtual void uploadChunk(ByteChain data, int partNumber, Done completion) = 0;
  /// After every part was answered for: success once the service has made a file of them.
  virtual void finalizeUpload(Done completion) = 0;

  /// The identifier under which the UI layer shows the recording until the service has named the file, for delegates
  /// that pass it on.
  virtual std::optional<std::string> tempFileId() const { return std::nullopt; }
  virtual void setTempFileId(std::optional<std::string>) {}
};

}  // namespace quillbeam
