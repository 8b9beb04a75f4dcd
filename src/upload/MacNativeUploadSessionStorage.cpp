#include "upload/MacNativeUploadSessionStorage.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <tuple>

#include "base/Json.h"

namespace quillbeam {

namespace {

constexpr std::string_view sessionsDirectoryName = "native_upload_sessions";

bool mayBeAbsent(const Error& error) { return error.domain() == posixErrorDomain && error.code() == ENOENT; }

}  // namespace

MacNativeUploadSessionStorage::MacNativeUploadSessionStorage(Platform& platform)
    : files_(platform.files),
      places_(platform.places),
      dispatch_(platform.dispatch),
      logger_(platform.systemLog, "io.quillbeam.app.macos", "MacNativeUploadSessionStorage"),
      queue_(platform.dispatch.makeSerialQueue("io.quillbeam.macos.upload.storage")) {}

std::optional<Path> MacNativeUploadSessionStorage::directory() const {
  auto path = inApplicationSupport(places_, sessionsDirectoryName);
  if (!path) logger_.error("Application Support directory not available");
  return path;
}

Path MacNativeUploadSessionStorage::sessionPath(const Path& directory, const std::string& sessionId) const {
  return joined(directory, sessionId + ".json");
}

void MacNativeUploadSessionStorage::saveSession(MacNativeUploadSession session) {
  MutexLock lock(mutex_);
  const std::uint64_t save = ++saves_;
  latestSave_.insert_or_assign(session.id, save);
  // Enqueued under the lock, so that the queue's order is that of the numbers.
  queue_->async([this, save, session = std::move(session)] {
    if (isLatest(session.id, save)) write(session);
  });
}

bool MacNativeUploadSessionStorage::isLatest(const std::string& sessionId, std::uint64_t save) {
  MutexLock lock(mutex_);
  const auto latest = latestSave_.find(sessionId);
  if (latest == latestSave_.end() || latest->second != save) return false;
  latestSave_.erase(latest);
  return true;
}

void MacNativeUploadSessionStorage::write(const MacNativeUploadSession& session) {
  const auto path = directory();
  if (!path) return;
  const auto written = writeRecord(*path, session);
  if (!written) {
    logger_.error("Failed to save session " + session.id + ": " + written.error().description());
    return;
  }
  logger_.debug([&] { return "Session " + session.id + " saved to disk"; });
}

Result<void> MacNativeUploadSessionStorage::writeRecord(const Path& directory, const MacNativeUploadSession& session) {
  TRY_VOID(files_.createDirectories(directory));
  TRY(const std::string text, toJson(toValue(session)));
  return files_.writeAtomically(sessionPath(directory, session.id), ByteChain(Bytes(text.begin(), text.end())));
}

void MacNativeUploadSessionStorage::deleteSession(const std::string& sessionId) {
  queue_->async([this, sessionId] { removeRecord(sessionId); });
}

void MacNativeUploadSessionStorage::removeRecord(const std::string& sessionId) {
  const auto path = directory();
  if (!path) return;
  const auto removed = files_.remove(sessionPath(*path, sessionId));
  if (!removed) {
    logger_.error("Failed to delete session " + sessionId + ": " + removed.error().description());
    return;
  }
  logger_.debug([&] { return "Session " + sessionId + " deleted from disk"; });
}

std::vector<MacNativeUploadSession> MacNativeUploadSessionStorage::loadAllSessions() {
  std::vector<MacNativeUploadSession> sessions;
  const auto path = directory();
  if (!path || !files_.exists(*path)) return sessions;
  const auto names = files_.list(*path);
  if (!names) {
    logger_.error("Failed to enumerate sessions directory: " + names.error().description());
    return sessions;
  }
  for (const std::string& name : *names) {
    if (fileExtension(name) != "json") continue;
    if (auto session = load(*path, name)) sessions.push_back(*std::move(session));
  }
  std::ranges::sort(sessions, [](const MacNativeUploadSession& a, const MacNativeUploadSession& b) {
    return std::tie(b.createdAt, a.id) < std::tie(a.createdAt, b.id);
  });
  return sessions;
}

std::optional<MacNativeUploadSession> MacNativeUploadSessionStorage::load(const Path& directory,
                                                                          const std::string& name) {
  auto session = [&]() -> Result<MacNativeUploadSession> {
    TRY(const Bytes bytes, files_.read(joined(directory, name)));
    TRY(const Value value, parseJson(std::string(bytes.begin(), bytes.end())));
    return fromValue<MacNativeUploadSession>(value);
  }();
  // The id becomes part of file names: one that is not the record's own name is not trusted.
  if (session && session->id + ".json" == name) return *std::move(session);
  // Deleted by the clean-up since it was listed.
  if (!session && mayBeAbsent(session.error())) return std::nullopt;
  logger_.error("Failed to decode session from " + name);
  return std::nullopt;
}

std::vector<MacNativeUploadSession> MacNativeUploadSessionStorage::getActiveSessions() {
  auto sessions = loadAllSessions();
  std::erase_if(sessions, [](const MacNativeUploadSession& session) { return !session.isIncomplete(); });
  return sessions;
}

void MacNativeUploadSessionStorage::cleanupOldSessions(int olderThanDays) {
  const Date cutOff = dispatch_.now() - std::chrono::days(olderThanDays);
  for (const MacNativeUploadSession& session : loadAllSessions()) {
    if (session.isIncomplete() || session.lastModifiedAt >= cutOff) continue;
    deleteSession(session.id);
    logger_.info("Cleaned up old session: " + session.id);
  }
}

Task<void> MacNativeUploadSessionStorage::flushed() { return drained(*queue_); }

Task<std::vector<MacNativeUploadSession>> MacNativeUploadSessionStorage::savedSessions() {
  auto load = [this]() -> Result<std::vector<MacNativeUploadSession>> { return loadAllSessions(); };
  co_return co_await runOn<std::vector<MacNativeUploadSession>>(*queue_, load);
}

void MacNativeUploadSessionStorage::sweepTemporaryFiles() {
  queue_->async([this] {
    const auto path = directory();
    if (!path) return;
    for (const std::string& name : files_.list(*path).value_or(std::vector<std::string>())) {
      if (isTemporaryName(name)) std::ignore = files_.remove(joined(*path, name));
    }
  });
}

}  // namespace quillbeam
