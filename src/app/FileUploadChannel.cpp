#include "app/FileUploadChannel.h"

#include "app/ChannelNames.h"
#include "channels/Arguments.h"
#include "channels/MethodTable.h"

namespace quillbeam {

namespace {

ValueMap statusMap(const FileUpload::Status& status) {
  const auto& error = status.error;
  return {{"phase", toText(status.phase)},
          {"sessionId", status.sessionId},
          {"fileId", status.fileId},
          {"totalBytes", status.totalBytes},
          {"confirmedBytes", status.confirmedBytes},
          {"bytesInFlight", status.bytesInFlight},
          {"totalParts", status.totalParts},
          {"confirmedParts", status.confirmedParts},
          {"lastError", status.lastError},
          {"error", error ? Value(error->description()) : Value()},
          {"errorDomain", error ? Value(error->domain()) : Value()},
          {"errorCode", error ? Value(error->code()) : Value()}};
}

}  // namespace

FileUploadChannel::FileUploadChannel(BinaryMessenger& messenger, Platform& platform,
                                     MacNativeBackgroundUploadManager& manager, NotificationCenter& notifications)
    : platform_(platform),
      manager_(manager),
      notifications_(notifications),
      channel_(messenger, std::string(channel_names::fileUpload)),
      tasks_(platform.dispatch.main()) {
  static const MethodTable<FileUploadChannel> methods = {
      {"startFileUpload", &FileUploadChannel::start},        {"getFileUploadStatus", &FileUploadChannel::status},
      {"stopFileUpload", &FileUploadChannel::stop},          {"abortUploadSession", &FileUploadChannel::abortSession},
      {"getUploadTransfers", &FileUploadChannel::transfers},
  };
  channel_.setCallHandler(
      [this](MethodCall call, MethodResult result) { methods.dispatch(*this, std::move(call), std::move(result)); });
}

void FileUploadChannel::start(Value arguments, MethodResult result) {
  const Arguments given(arguments);
  const auto file = given.string("filePath");
  const auto teamId = given.string("teamId");
  const auto folderId = given.string("folderId");
  const auto fileName = given.string("fileName");
  const auto contentType = given.string("contentType");
  if (!file || !teamId || !folderId || !fileName || !contentType) {
    return result.error("INVALID_ARGUMENTS", "filePath, teamId, folderId, fileName and contentType are required");
  }
  const std::string id = platform_.random.uuid().string();
  auto upload = std::make_unique<FileUpload>(platform_, manager_, notifications_,
                                             FileUpload::Request{*file, *teamId, *folderId, *fileName, *contentType});
  // Kept when it has ended, so that its end can be asked for.
  tasks_.start(upload->run());
  uploads_.emplace(id, std::move(upload));
  result.success(id);
}

FileUpload* FileUploadChannel::find(const Value& arguments) {
  const auto id = Arguments(arguments).string("id");
  const auto found = uploads_.find(id.value_or(""));
  return found == uploads_.end() ? nullptr : found->second.get();
}

void FileUploadChannel::status(Value arguments, MethodResult result) {
  FileUpload* upload = find(arguments);
  if (upload == nullptr) return result.error("INVALID_ARGUMENTS", "No such upload");
  tasks_.start(upload->status(), [result = std::move(result)](const Result<FileUpload::Status>& status) mutable {
    if (!status) return result.error("STATUS_FAILED", status.error().description());
    result.success(statusMap(*status));
  });
}

void FileUploadChannel::stop(Value arguments, MethodResult result) {
  FileUpload* upload = find(arguments);
  if (upload == nullptr) return result.error("INVALID_ARGUMENTS", "No such upload");
  upload->stop();
  result.success();
}

void FileUploadChannel::abortSession(Value arguments, MethodResult result) {
  const auto sessionId = Arguments(arguments).string("sessionId");
  if (!sessionId) return result.error("INVALID_ARGUMENTS", "sessionId is required");
  tasks_.start(manager_.abortSession(*sessionId), [result = std::move(result)](const Result<void>& aborted) mutable {
    if (!aborted) return result.error("ABORT_FAILED", aborted.error().description());
    result.success();
  });
}

void FileUploadChannel::transfers(Value, MethodResult result) {
  tasks_.start(describeTransfers(), [result = std::move(result)](Result<ValueList> list) mutable {
    result.success(list ? Value(*std::move(list)) : Value());
  });
}

Task<ValueList> FileUploadChannel::describeTransfers() {
  ValueList list;
  const auto current = manager_.activeSession();
  for (const MacNativeUploadSession& session : manager_.runningSessions()) {
    CO_TRY(const auto transfers, co_await manager_.transferState(session.id));
    ValueMap map{{"sessionId", session.id},
                 {"state", toText(session.state)},
                 {"confirmedBytes", session.totalBytesUploaded},
                 {"bytesInFlight", transfers.bytesInFlight},
                 {"activeParts", static_cast<std::int32_t>(transfers.activeParts.size())},
                 {"confirmedParts", static_cast<std::int32_t>(session.uploadedParts.size())},
                 {"expectedParts", session.totalPartsExpected.value_or(0)},
                 {"isCurrent", current && current->id == session.id}};
    list.emplace_back(std::move(map));
  }
  co_return list;
}

}  // namespace quillbeam
