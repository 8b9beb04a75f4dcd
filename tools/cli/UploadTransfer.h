#pragma once

#include <cstdint>
#include <string>

#include "base/Value.h"

namespace quillbeam::cli {

/// How the newest upload of a native half is doing.
struct UploadTransfer {
  std::string sessionId;  ///< empty while there is none
  std::string state;
  std::int64_t confirmedBytes = 0;
  std::int64_t bytesInFlight = 0;
  std::int64_t confirmedParts = 0;
  std::int64_t expectedParts = 0;  ///< 0 while the recording runs
  std::int64_t activeParts = 0;

  /// From the answer of "getUploadTransfers".
  static UploadTransfer currentOf(const Value& transfers);
  bool exists() const { return !sessionId.empty(); }
  std::int64_t bytesMoved() const { return confirmedBytes + bytesInFlight; }
};

/// "uploaded 10.5 MB, part 3 of 7".
std::string transferText(const UploadTransfer& transfer);

}  // namespace quillbeam::cli
