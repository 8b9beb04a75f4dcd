#include "chunking/ChunkUploadError.h"

#include <utility>

#include "base/Value.h"

namespace quillbeam {

std::string describe(ChunkUploadError error) {
  switch (error) {
    case ChunkUploadError::uploadFailed:
      return "The recording could not be uploaded";
  }
  std::unreachable();
}

Error chunkUploadError(Error underlying, const std::optional<Path>& localBackupPath) {
  std::string description = underlying.description();
  return Error(ChunkUploadError::uploadFailed)
      .withDescription(std::move(description))
      .withPayload(ValueMap{{"localBackupPath", localBackupPath}})
      .withUnderlying(std::move(underlying));
}

}  // namespace quillbeam
