#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "base/Record.h"
#include "upload/MacNativeApiClient.h"

namespace quillbeam {

/// Where an upload stands. The text of each is its name.
///
///     active ──► (uploading) ──► completing ──► completed
///        └──────────┴─────────────────┴──► failed, aborted
enum class MacUploadSessionState {
  active,      ///< the recording may still produce parts
  uploading,   ///< every part was handed over when a process ended in an orderly way; goes on at the next launch
  completing,  ///< every part is at the service; it was asked to make a file of them
  completed,
  failed,
  aborted,
};
std::string toText(MacUploadSessionState state);
std::optional<MacUploadSessionState> fromText(std::type_identity<MacUploadSessionState>, std::string_view text);

/// A part that the service has confirmed.
struct MacUploadedPart {
  int partNumber = 0;  ///< from 1
  std::string etag;    ///< as received, without quotes
  std::int64_t size = 0;
  Date uploadedAt;
  static constexpr auto fields() {
    return std::tuple(field("partNumber", &MacUploadedPart::partNumber), field("etag", &MacUploadedPart::etag),
                      field("size", &MacUploadedPart::size), field("uploadedAt", &MacUploadedPart::uploadedAt));
  }
};

/// A part whose last attempt failed.
struct MacFailedPart {
  int partNumber = 0;
  std::string lastError;
  int retryCount = 0;  ///< failed attempts so far
  Date lastAttemptAt;
  static constexpr auto fields() {
    return std::tuple(field("partNumber", &MacFailedPart::partNumber), field("lastError", &MacFailedPart::lastError),
                      field("retryCount", &MacFailedPart::retryCount),
                      field("lastAttemptAt", &MacFailedPart::lastAttemptAt));
  }
};

/// One multipart upload as it is persisted: one JSON object, members in this order.
struct MacNativeUploadSession {
  /// After this many failed attempts a part is given up.
  static constexpr int mostAttemptsPerPart = 5;

  std::string id;
  std::string uploadId;
  std::string fileId;
  std::string teamId;
  std::string folderId;
  std::string fileName;
  std::string contentType;
  MacUploadSessionState state = MacUploadSessionState::active;
  Date createdAt;
  Date lastModifiedAt;
  std::vector<MacUploadedPart> uploadedParts;  ///< in order of confirmation
  std::vector<int> pendingParts;               ///< handed to the transfer layer, no outcome yet
  std::vector<MacFailedPart> failedParts;
  int nextPartNumber = 1;
  std::int64_t totalBytesUploaded = 0;
  std::optional<int> totalPartsExpected;  ///< known once the recording has ended
  std::optional<std::string> lastError;
  int errorCount = 0;

  static constexpr auto fields() {
    using Session = MacNativeUploadSession;
    return std::tuple(field("id", &Session::id), field("uploadId", &Session::uploadId),
                      field("fileId", &Session::fileId), field("teamId", &Session::teamId),
                      field("folderId", &Session::folderId), field("fileName", &Session::fileName),
                      field("contentType", &Session::contentType), field("state", &Session::state),
                      field("createdAt", &Session::createdAt), field("lastModifiedAt", &Session::lastModifiedAt),
                      field("uploadedParts", &Session::uploadedParts), field("pendingParts", &Session::pendingParts),
                      field("failedParts", &Session::failedParts), field("nextPartNumber", &Session::nextPartNumber),
                      field("totalBytesUploaded", &Session::totalBytesUploaded),
                      field("totalPartsExpected", &Session::totalPartsExpected),
                      field("lastError", &Session::lastError), field("errorCount", &Session::errorCount));
  }

  UploadIdentity identity() const { return {teamId, folderId, fileId, uploadId}; }
  /// "active", "uploading" or "completing".
  bool isIncomplete() const;

  void markPartPending(int partNumber, Date now);
  /// Confirming a part twice changes nothing.
  void markPartUploaded(int partNumber, std::string etag, std::int64_t size, Date now);
  void markPartFailed(int partNumber, const std::string& error, Date now);
  /// Failed parts that have been tried fewer than `maxRetries` times, in the order in which they failed first.
  std::vector<int> getRetryableParts(int maxRetries) const;

  bool isUploaded(int partNumber) const;
  const MacFailedPart* failedPart(int partNumber) const;
  /// A part was tried as often as it may be: this upload can no longer be completed.
  bool hasExhaustedPart() const;
  /// Every part of the finished recording is confirmed, and nobody has asked for the file yet.
  bool isReadyToFinalize() const;
};

}  // namespace quillbeam
