#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Mutex.h"
#include "platform/Platform.h"
#include "upload/MacNativeUploadSession.h"

namespace quillbeam {

/// The upload sessions on disk: one file per session, "native_upload_sessions/<id>.json". Saves and deletions are
/// queued and reach the disk in the order in which they were issued, each durably and whole; of several saves of one
/// session that wait together only the last is written. Failures are logged, the caller's record stays as it is.
/// Callable from any queue; the loads block and see what has been written so far.
class MacNativeUploadSessionStorage {
 public:
  explicit MacNativeUploadSessionStorage(Platform& platform);

  void saveSession(MacNativeUploadSession session);
  void deleteSession(const std::string& sessionId);
  /// Newest first. A file that cannot be read, does not decode or is not named after its session is skipped and left.
  std::vector<MacNativeUploadSession> loadAllSessions();
  /// Those that are incomplete, newest first.
  std::vector<MacNativeUploadSession> getActiveSessions();
  /// Deletes the records of ended sessions that were last changed more than so many days ago.
  void cleanupOldSessions(int olderThanDays);

  /// Resumes when everything issued before is on disk.
  Task<void> flushed();
  /// The loads, off the caller's queue and after everything issued before.
  Task<std::vector<MacNativeUploadSession>> savedSessions();
  /// Removes what a process that died while writing a record left beside it.
  void sweepTemporaryFiles();

 private:
  std::optional<Path> directory() const;
  Path sessionPath(const Path& directory, const std::string& sessionId) const;
  bool isLatest(const std::string& sessionId, std::uint64_t save);
  void write(const MacNativeUploadSession& session);
  Result<void> writeRecord(const Path& directory, const MacNativeUploadSession& session);
  std::optional<MacNativeUploadSession> load(const Path& directory, const std::string& name);
  void removeRecord(const std::string& sessionId);

  Files& files_;
  const Places& places_;
  Dispatch& dispatch_;
  const Logger logger_;
  Mutex mutex_;
  std::uint64_t saves_ GUARDED_BY(mutex_) = 0;
  std::map<std::string, std::uint64_t> latestSave_ GUARDED_BY(mutex_);
  std::unique_ptr<DispatchQueue> queue_;  // last: it runs what waits on it before the rest goes
};

}  // namespace quillbeam
