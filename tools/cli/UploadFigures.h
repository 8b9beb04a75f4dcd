#pragma once

#include <cstdint>
#include <string>

#include "base/Value.h"
#include "cli/ExitCode.h"

namespace quillbeam::cli {

/// How the upload of a file is doing, as the native half reports it.
struct UploadFigures {
  std::string phase;
  std::string sessionId;
  std::string fileId;
  std::int64_t totalBytes = 0;
  std::int64_t confirmedBytes = 0;
  std::int64_t bytesInFlight = 0;
  std::int64_t totalParts = 0;
  std::int64_t confirmedParts = 0;
  std::string lastError;
  std::string error;  ///< empty while all is well
  std::string errorDomain;
  int errorCode = 0;

  static UploadFigures fromValue(const Value& value);
  bool hasEnded() const { return phase == "ended"; }
  /// What the program says by its exit code; `ok` without an error.
  ExitCode exitCode() const;
};

/// "█████░░░░░  50 %", by bytes.
std::string uploadBar(double share);
/// Everything a person wants to see while a file is uploaded, on one line.
std::string uploadText(const UploadFigures& figures, double bytesPerSecond);

}  // namespace quillbeam::cli
