#pragma once

namespace quillbeam::cli {

/// What the program's exit codes mean; scripts rely on them.
enum class ExitCode {
  ok = 0,
  failed = 1,
  badUsage = 2,
  nothingToCapture = 3,    ///< no display or no sound server
  callFailed = 4,          ///< the native half answered with an error
  notImplemented = 5,      ///< the native half does not know the channel or method
  nobodyListens = 6,       ///< no native half at the socket
  uploadRefused = 7,       ///< the upload service said no, or a part could not be uploaded
  serviceUnreachable = 8,  ///< the upload service does not answer
  uploadTimedOut = 9,      ///< no byte moved for too long; the upload can be resumed
  gaveUp = 130,            ///< interrupted twice
};

}  // namespace quillbeam::cli
