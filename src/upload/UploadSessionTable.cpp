#include "upload/UploadSessionTable.h"

#include <algorithm>
#include <utility>

namespace quillbeam {

UploadSessionTable::UploadSessionTable(Dispatch& dispatch, MacNativeUploadSessionStorage& storage)
    : storage_(storage), sessionQueue_(dispatch.makeSerialQueue("io.quillbeam.macos.upload.session")) {}

template <class Work>
auto UploadSessionTable::onQueue(Work work) {
  decltype(work()) result{};
  sessionQueue_->sync([&] { result = work(); });
  return result;
}

void UploadSessionTable::insert(SessionContext context) {
  sessionQueue_->sync([&] {
    sessionQueue_->assertCurrent();
    std::string id = context.session.id;
    sessions_.insert_or_assign(std::move(id), std::move(context));
  });
}

std::optional<SessionContext> UploadSessionTable::find(const std::string& sessionId) {
  return onQueue([&]() -> std::optional<SessionContext> {
    sessionQueue_->assertCurrent();
    const auto found = sessions_.find(sessionId);
    return found == sessions_.end() ? std::nullopt : std::optional(found->second);
  });
}

std::optional<SessionContext> UploadSessionTable::findActive() {
  return onQueue([&] {
    sessionQueue_->assertCurrent();
    std::optional<SessionContext> newest;
    for (const auto& [id, context] : sessions_) {
      const bool isNewer = !newest || context.session.createdAt > newest->session.createdAt;
      if (context.session.isIncomplete() && isNewer) newest = context;
    }
    return newest;
  });
}

std::optional<SessionContext> UploadSessionTable::find(const std::optional<std::string>& sessionId) {
  return sessionId ? find(*sessionId) : findActive();
}

std::vector<SessionContext> UploadSessionTable::all() {
  return onQueue([&] {
    sessionQueue_->assertCurrent();
    std::vector<SessionContext> contexts;
    for (const auto& [id, context] : sessions_) contexts.push_back(context);
    return contexts;
  });
}

void UploadSessionTable::remove(const std::string& sessionId) {
  sessionQueue_->sync([&] {
    sessionQueue_->assertCurrent();
    sessions_.erase(sessionId);
  });
}

int UploadSessionTable::removeEnded() {
  return onQueue([&] {
    sessionQueue_->assertCurrent();
    return static_cast<int>(
        std::erase_if(sessions_, [](const auto& entry) { return !entry.second.session.isIncomplete(); }));
  });
}

std::optional<MacNativeUploadSession> UploadSessionTable::mutateSession(const std::string& sessionId,
                                                                        const Mutation& mutation) {
  return onQueue([&]() -> std::optional<MacNativeUploadSession> {
    sessionQueue_->assertCurrent();
    const auto found = sessions_.find(sessionId);
    if (found == sessions_.end()) return std::nullopt;
    MacNativeUploadSession& session = found->second.session;
    if (mutation(session) == Change::made) storage_.saveSession(session);
    return session;
  });
}

}  // namespace quillbeam
