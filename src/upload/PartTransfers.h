#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/TaskScope.h"
#include "base/Weakly.h"
#include "platform/Platform.h"
#include "upload/PartClaims.h"
#include "upload/PartFiles.h"
#include "upload/UploadSessionTable.h"
#include "upload/UploadTaskMap.h"
#include "upload/UploadVerification.h"

namespace quillbeam {

/// Who is told how parts fare, after the record says so. On the transfers' own queue.
class PartTransfersObserver {
 public:
  virtual ~PartTransfersObserver() = default;
  /// `session` is the record with the part in it.
  virtual void partWasConfirmed(const MacNativeUploadSession& session, int partNumber) = 0;
  /// One attempt of it; whether another follows is settled here.
  virtual void partHasFailed(const MacNativeUploadSession& session, int partNumber, const Error& error) = 0;
  /// The background session has delivered all its events.
  virtual void transfersHaveSettled() = 0;
};

/// The way of parts to the service: each is kept in a file until it is confirmed or given up, is named in its session's
/// record, and goes to an address of its own in one transfer at a time. A failed part is tried again 2 s later at a
/// fresh address, 5 attempts in all.
///
///     claimed ──► written, pending ──► transferred ──► confirmed
///        ▲                                  └──► failed ──► given up
///        └───────────────── 2 s ────────────────────┘
///
/// Main queue; completions arrive on the background session's and do not wait for main. Retries live here, not in
/// their callers.
class PartTransfers final : private BackgroundTransferDelegate, public WeaklyHeld {
 public:
  /// What it works on is its owner's and outlives it.
  PartTransfers(Platform& platform, const Logger& logger, UploadSessionTable& sessions, PartFiles& partFiles,
                PartTransfersObserver& observer);
  /// Like `end`.
  ~PartTransfers() override;

  /// Ends when the transfer has begun. A part that is under way or confirmed already is left alone.
  /// `MacBackgroundUploadError`s and the API client's; then the part is the caller's, and there is no retry.
  Task<void> upload(SessionContext context, int partNumber, PartContent data);
  /// Failed parts, one after the other, as soon as each has an address. Those under way are left alone, and a retry
  /// that does not get as far as a transfer is logged and nothing else.
  void retryInTurn(std::vector<int> parts, const std::string& sessionId);
  /// Their completions come as failures.
  void cancelTransfers(const std::string& sessionId);

  /// Looks after the last parts of a finished recording, until it is stopped or gives up.
  void startVerification(const std::string& sessionId);
  void stopVerification(const std::string& sessionId);

  struct State {
    std::int64_t bytesInFlight = 0;  ///< bytes of unconfirmed parts that have left this machine
    std::set<int> activeParts;       ///< with a transfer or a retry under way, or being handed over
  };
  Task<State> state(std::string sessionId);

  /// Ends transfers and retries, and returns when the observer hears of nothing any more. Nothing can be transferred
  /// afterwards; sessions are to leave the table before the main queue goes on.
  void end();

 private:
  using SessionId = std::string;

  void uploadTaskDidComplete(UploadTaskId task, Result<std::optional<HttpResponse>> outcome) override;
  void backgroundSessionDidFinishEvents() override;
  void partDidSucceed(const MacTaskInfo& info, const HttpResponse& response);
  void partDidFail(const MacTaskInfo& info, const Error& error);
  void removeUnlessRetried(const MacTaskInfo& info);

  void startTransfer(const std::string& url, MacTaskInfo info);
  PartClaims::Claim claimUnlessUnderWay(const SessionId& sessionId, int partNumber);
  bool isUploaded(const SessionId& sessionId, int partNumber);

  Task<void> retryLater(int partNumber, SessionId sessionId, PartClaims::Claim claim);
  Task<void> retryPart(int partNumber, SessionId sessionId);
  Task<void> retryAll(std::vector<int> parts, SessionId sessionId);
  void retryIdleParts(const SessionId& sessionId);
  Task<void> runRetry(int partNumber, SessionId sessionId);
  Task<void> tryAgain(int partNumber, SessionContext context);

  Date now() const { return dispatch_.now(); }

  Dispatch& dispatch_;
  DispatchQueue& main_;
  const Logger& logger_;
  UploadSessionTable& sessions_;
  PartFiles& partFiles_;
  PartTransfersObserver& observer_;

  UploadTaskMap taskMap_;
  PartClaims claims_;  // held while a part is handed over, or its retry waits or fetches an address
  std::unique_ptr<BackgroundTransferSession> backgroundSession_;  // none after the end
  UploadVerification verification_;
  TaskScope tasks_;
};

}  // namespace quillbeam
