#pragma once

#include <string>
#include <string_view>

#include "base/Error.h"

namespace quillbeam {

enum class MacBackgroundUploadError {
  failedToWriteTempFile,  ///< with the disk's error below it
  httpError,              ///< the storage said no; the status is the payload
  noActiveSession,
  tempDirectoryNotAvailable,
  invalidPresignedUrl,
  sessionInterrupted,
  noHttpResponse,
  finalizationTimeout,
};
std::string describe(MacBackgroundUploadError error);
constexpr std::string_view errorDomain(MacBackgroundUploadError) { return "MacBackgroundUploadError"; }

/// The cases whose text carries what happened.
Error failedToWriteTempFile(Error underlying);
Error storageHttpError(int status);

}  // namespace quillbeam
