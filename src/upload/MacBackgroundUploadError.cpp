#include "upload/MacBackgroundUploadError.h"

#include <utility>

#include "base/Value.h"

namespace quillbeam {

std::string describe(MacBackgroundUploadError error) {
  switch (error) {
    case MacBackgroundUploadError::failedToWriteTempFile:
      return "Failed to write temp file";
    case MacBackgroundUploadError::httpError:
      return "HTTP error";
    case MacBackgroundUploadError::noActiveSession:
      return "No active upload session";
    case MacBackgroundUploadError::tempDirectoryNotAvailable:
      return "Temp directory not available";
    case MacBackgroundUploadError::invalidPresignedUrl:
      return "Invalid presigned URL";
    case MacBackgroundUploadError::sessionInterrupted:
      return "Upload session was interrupted";
    case MacBackgroundUploadError::noHttpResponse:
      return "No HTTP response received for upload";
    case MacBackgroundUploadError::finalizationTimeout:
      return "Upload finalization timed out after 120 seconds";
  }
  std::unreachable();
}

Error failedToWriteTempFile(Error underlying) {
  const auto error = MacBackgroundUploadError::failedToWriteTempFile;
  std::string description = describe(error) + ": " + underlying.description();
  return Error(error).withDescription(std::move(description)).withUnderlying(std::move(underlying));
}

Error storageHttpError(int status) {
  const auto error = MacBackgroundUploadError::httpError;
  return Error(error).withDescription(describe(error) + ": " + std::to_string(status)).withPayload(status);
}

}  // namespace quillbeam
