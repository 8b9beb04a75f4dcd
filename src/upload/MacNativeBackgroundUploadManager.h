#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/Mutex.h"
#include "base/TaskScope.h"
#include "base/Weakly.h"
#include "platform/NotificationCenter.h"
#include "platform/Platform.h"
#include "upload/FinalizationWaits.h"
#include "upload/MacBackgroundUploadError.h"
#include "upload/MacNativeApiClient.h"
#include "upload/MacNativeBackgroundUploadDelegate.h"
#include "upload/MacNativeUploadSession.h"
#include "upload/MacNativeUploadSessionStorage.h"
#include "upload/MacUploadSourceType.h"
#include "upload/PartFiles.h"
#include "upload/PartTransfers.h"
#include "upload/UploadHeartbeats.h"
#include "upload/UploadSessionTable.h"

namespace quillbeam {

/// What an upload session is opened with.
struct UploadRequest {
  std::string teamId;
  std::string folderId;
  std::string fileName;
  std::string contentType;
  MacUploadSourceType source = MacUploadSourceType::screen;
  std::optional<std::string> localBackupPath;
  std::optional<std::string> segmentBackupId;
  std::optional<std::string> tempFileId;
};

/// Runs multipart uploads: takes parts while a recording still grows, has `PartTransfers` bring each to the service,
/// remembers all of it in the session's record, and has the service make a file of the parts once the recording has
/// ended and every part is there. Posts "macRecordingEntryUpdate", "macUploadProgressUpdated", "macUploadCompleted" and
/// "macUploadFailed".
///
/// Main queue, unless said otherwise. Detached work lives in the manager, not in its callers. The records live on their
/// table's queue, transfers report on the background session's; neither waits for main.
class MacNativeBackgroundUploadManager final : private PartTransfersObserver, public WeaklyHeld {
 public:
  using Finalized = FinalizationWaits::Finalized;
  enum class StopKind {
    keepAtService,  ///< the record keeps its state: the next launch goes on with it, without the part files
    abort,          ///< the service is told to forget the upload
  };

  MacNativeBackgroundUploadManager(Platform& platform, MacNativeApiClient& apiClient,
                                   MacNativeUploadSessionStorage& storage, NotificationCenter& notifications);
  ~MacNativeBackgroundUploadManager() override;

  /// Errors of the API client; then nothing of the session exists.
  Task<MacNativeUploadSession> startSession(UploadRequest request);
  /// Ends when the part's transfer has been handed over, not when the part is stored. Without an id: the active
  /// session. A part that is under way or confirmed already is left alone. `MacBackgroundUploadError`s and the API
  /// client's; a part that was not handed over is the caller's.
  Task<void> uploadChunk(PartContent data, int partNumber, std::optional<std::string> sessionId);
  /// The recording has ended with so many parts. `completion` is called exactly once: when the file was made, when that
  /// failed, with `finalizationTimeout` after 120 s (the upload goes on), or at once with `noActiveSession`.
  void markRecordingComplete(int totalParts, const std::optional<std::string>& sessionId, Finalized completion);
  /// Without an id: every session.
  void stopSession(StopKind kind, const std::optional<std::string>& sessionId);
  /// Aborts a session wherever it lives, in this process or only on disk, and waits until the service knows. One that
  /// the service no longer knows counts as told. `noActiveSession` when there is no record of it or it has been
  /// completed or aborted.
  Task<void> abortSession(std::string sessionId);
  /// Goes on with what former processes left: finished recordings are resumed, interrupted ones become "failed".
  Task<void> resumeIncompleteSessions();
  /// Removes part files and temporary files that no incomplete session owns. For the launch.
  Task<void> sweepLeftovers();
  /// For an orderly end of the process: stops everything and leaves on disk what the next launch can go on with.
  /// Nothing can be uploaded afterwards.
  Task<void> prepareForTermination();

  /// Confirmed parts by expected parts; 0 while the number is not known. Any queue.
  double getCurrentProgress(const std::optional<std::string>& sessionId);
  /// The newest incomplete session of this process. Any queue.
  std::optional<MacNativeUploadSession> activeSession();
  std::optional<MacNativeUploadSession> getSession(const std::string& sessionId);
  std::vector<MacNativeUploadSession> runningSessions();
  using TransferState = PartTransfers::State;
  Task<TransferState> transferState(std::string sessionId) { return transfers_.state(std::move(sessionId)); }

  void setDelegate(std::weak_ptr<MacNativeBackgroundUploadDelegate> delegate);
  /// Called on the main queue, once, when the background session has delivered all its events.
  void setBackgroundCompletionHandler(Closure handler);

  /// Runs a task that outlives its starter; `done` is not called when the process ends first.
  template <class T, class Done>
  void detached(Task<T> task, Done done) {
    if (!isEnding_) tasks_.start(std::move(task), std::move(done));
  }

 private:
  using SessionId = std::string;

  void partWasConfirmed(const MacNativeUploadSession& session, int partNumber) override;
  void partHasFailed(const MacNativeUploadSession& session, int partNumber, const Error& error) override;
  void transfersHaveSettled() override;
  void onMain(std::function<void(MacNativeBackgroundUploadManager& self)> work);

  SessionContext makeContext(MacNativeUploadSession session);
  MacNativeUploadSession makeSession(const UploadRequest& request, MacNativeApiClient::InitResponse answer);
  void announceReady(const MacNativeUploadSession& session, const UploadRequest& request);

  void checkAndFinalizeIfComplete(const SessionId& sessionId);
  Task<void> finalizeSession(MacNativeUploadSession session);
  Task<void> didFinalize(MacNativeUploadSession session);
  Task<void> didFailToFinalize(MacNativeUploadSession session, Error error);
  void waitForFinalization(const SessionId& sessionId, Finalized completion);
  void finalizationTimedOut(const SessionId& sessionId);

  /// All but telling the service.
  void stop(const SessionContext& context, StopKind kind);
  Task<void> tellServiceOfAbort(UploadIdentity upload);
  Task<void> abortStoredSession(SessionId sessionId);
  void resume(const MacNativeUploadSession& session);
  void markInterrupted(MacNativeUploadSession session);
  void leaveForNextLaunch(const SessionId& sessionId);

  template <class Tell>
  void tellDelegate(Tell tell);
  Date now() const { return platform_.dispatch.now(); }

  Platform& platform_;
  DispatchQueue& main_;
  const Logger logger_;
  MacNativeApiClient& apiClient_;
  MacNativeUploadSessionStorage& sessionStorage_;
  NotificationCenter& notifications_;

  PartFiles partFiles_;
  UploadSessionTable sessions_;
  FinalizationWaits finalizationWaits_;
  Mutex delegateMutex_;
  std::weak_ptr<MacNativeBackgroundUploadDelegate> delegate_ GUARDED_BY(delegateMutex_);

  Closure backgroundCompletionHandler_;
  std::map<SessionId, TimerHandle> finalizationTimeouts_;
  bool isEnding_ = false;

  PartTransfers transfers_;
  UploadHeartbeats heartbeats_;
  TaskScope tasks_;
};

}  // namespace quillbeam
