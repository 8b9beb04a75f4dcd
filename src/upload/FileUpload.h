#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "base/Completion.h"
#include "platform/NotificationCenter.h"
#include "platform/Platform.h"
#include "upload/MacNativeBackgroundUploadManager.h"

namespace quillbeam {

enum class FileUploadError {
  emptyFile,
  notAFile,
  fileChanged,  ///< became shorter while it was read
  partGivenUp,  ///< one part failed as often as it may; the description says which and why
};
std::string describe(FileUploadError error);
constexpr std::string_view errorDomain(FileUploadError) { return "FileUploadError"; }

/// Uploads a file of any size: reads it in parts of exactly 5 MiB (the last is what is left), hands them to the
/// background upload manager with a bounded number of unconfirmed ones at a time, declares the upload complete with the
/// last and watches it to its end. Main queue.
///
///     opening → sending → finishing → ended
class FileUpload : public WeaklyHeld {
 public:
  static constexpr std::int64_t partSize = 5'242'880;
  /// Twice what is transferred at a time: the disk stays ahead of the network, and no more than this lies on disk
  /// twice.
  static constexpr int mostUnconfirmedParts = 3 * BackgroundTransferSession::mostRunningTransfers;

  struct Request {
    Path file;
    std::string teamId;
    std::string folderId;
    std::string fileName;
    std::string contentType;
  };

  enum class Phase { opening, sending, finishing, ended };

  struct Status {
    Phase phase = Phase::opening;
    std::string sessionId;
    std::string fileId;
    std::int64_t totalBytes = 0;
    std::int64_t confirmedBytes = 0;
    std::int64_t bytesInFlight = 0;
    int totalParts = 0;
    int confirmedParts = 0;
    std::optional<std::string> lastError;  ///< of a part, while the upload goes on
    std::optional<Error> error;            ///< why it ended without a file
  };

  FileUpload(Platform& platform, MacNativeBackgroundUploadManager& manager, NotificationCenter& notifications,
             Request request);

  /// Once. The manager's errors and `FileUploadError`s. When no byte has moved for two minutes after everything was
  /// handed over: `finalizationTimeout`, and the session goes on.
  Task<void> run();
  Task<Status> status();
  /// The user gives up. An upload that is still being fed is aborted, `run` then ends as `CommonError::cancelled`; one
  /// whose last part has been handed over goes on by itself.
  void stop();

 private:
  Task<void> upload();
  Task<void> measure();
  Task<void> open();
  Task<void> sendParts();
  Task<void> awaitRoom();
  Task<void> sendPart(int partNumber);
  FilePiece part(int partNumber) const;
  void startHandOver(int partNumber);
  Task<void> finish();
  Task<void> watch();
  void remember(const MacNativeUploadSession& session);
  Task<void> offerIdlePartsAgain();
  Result<void> checkForPartGivenUp(const MacNativeUploadSession& session, const std::set<int>& activeParts) const;
  /// Resumes when a part was confirmed, the upload has ended, or a second has passed.
  Task<void> change();
  void wake();
  void ended(const Value& userInfo, Result<void> outcome);

  Platform& platform_;
  DispatchQueue& main_;
  MacNativeBackgroundUploadManager& manager_;
  const Request request_;
  Status status_;
  bool isStopped_ = false;
  bool callerTimedOut_ = false;
  std::int64_t bytesMoved_ = 0;
  MediaTime lastMove_;
  std::optional<Result<void>> outcome_;
  std::optional<Completion<void>> waiter_;
  std::unique_ptr<NotificationCenter::Observation> progressed_, completed_, failed_;
  std::size_t handingOver_ = 0;
  std::optional<Error> handOverError_;
  TaskScope handOvers_;
};

std::string toText(FileUpload::Phase phase);

}  // namespace quillbeam
