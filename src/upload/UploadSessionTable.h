#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Dispatch.h"
#include "upload/MacNativeUploadSession.h"
#include "upload/MacNativeUploadSessionStorage.h"
#include "upload/MacPresignedUrlManager.h"

namespace quillbeam {

/// A session that this process runs. A snapshot: the live record stays in the table.
struct SessionContext {
  MacNativeUploadSession session;
  std::shared_ptr<MacPresignedUrlManager> urlManager;
};

/// The sessions that this process runs, by id. The live records are changed only here, and every change is saved in the
/// order in which it was made. Callable from any queue but the table's own; each call waits for it.
class UploadSessionTable {
 public:
  enum class Change { made, none };
  using Mutation = std::function<Change(MacNativeUploadSession& session)>;

  UploadSessionTable(Dispatch& dispatch, MacNativeUploadSessionStorage& storage);

  void insert(SessionContext context);
  std::optional<SessionContext> find(const std::string& sessionId);
  /// Of the incomplete sessions the one created last.
  std::optional<SessionContext> findActive();
  /// The session with this id; without one, the active session.
  std::optional<SessionContext> find(const std::optional<std::string>& sessionId);
  std::vector<SessionContext> all();
  void remove(const std::string& sessionId);
  /// Drops the sessions that have ended; how many there were.
  int removeEnded();

  /// Changes the live record and saves it when the mutation says so. The record after it; nullopt when the session is
  /// not in the table.
  std::optional<MacNativeUploadSession> mutateSession(const std::string& sessionId, const Mutation& mutation);

 private:
  template <class Work>
  auto onQueue(Work work);

  MacNativeUploadSessionStorage& storage_;
  std::map<std::string, SessionContext> sessions_ CONFINED_TO(*sessionQueue_);
  std::unique_ptr<DispatchQueue> sessionQueue_;
};

}  // namespace quillbeam
