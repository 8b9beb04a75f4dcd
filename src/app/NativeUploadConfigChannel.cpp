#include "app/NativeUploadConfigChannel.h"

#include "app/ChannelNames.h"
#include "channels/Arguments.h"
#include "channels/MethodTable.h"

namespace quillbeam {

namespace {

ValueMap sessionMap(const MacNativeUploadSession& session) {
  return {{"id", session.id},
          {"fileId", session.fileId},
          {"fileName", session.fileName},
          {"state", toText(session.state)},
          {"uploadedParts", static_cast<std::int32_t>(session.uploadedParts.size())},
          {"totalPartsExpected", session.totalPartsExpected.value_or(0)},
          {"errorCount", session.errorCount},
          {"lastError", session.lastError.value_or("")},
          {"createdAt", iso8601(session.createdAt)},
          {"lastModifiedAt", iso8601(session.lastModifiedAt)}};
}

}  // namespace

NativeUploadConfigChannel::NativeUploadConfigChannel(BinaryMessenger& messenger, DispatchQueue& main,
                                                     MacNativeApiClient& apiClient,
                                                     MacNativeUploadSessionStorage& storage,
                                                     MacNativeBackgroundUploadManager& manager, const Logger& logger)
    : apiClient_(apiClient),
      storage_(storage),
      manager_(manager),
      logger_(logger),
      channel_(messenger, std::string(channel_names::nativeUploadConfig)),
      tasks_(main) {
  static const MethodTable<NativeUploadConfigChannel> methods = {
      {"configureNativeApiClient", &NativeUploadConfigChannel::configure},
      {"updateNativeAuthToken", &NativeUploadConfigChannel::updateToken},
      {"clearNativeApiConfig", &NativeUploadConfigChannel::clear},
      {"isNativeApiConfigured", &NativeUploadConfigChannel::isConfigured},
      {"getIncompleteUploadSessions", &NativeUploadConfigChannel::incompleteSessions},
      {"resumeIncompleteUploads", &NativeUploadConfigChannel::resumeIncomplete},
      {"getCurrentUploadProgress", &NativeUploadConfigChannel::currentProgress},
      {"abortCurrentUpload", &NativeUploadConfigChannel::abortCurrent},
  };
  channel_.setCallHandler([this](MethodCall call, MethodResult result) {
    logger_.info("⚙️ macOS: Native upload config method called: " + call.method);
    methods.dispatch(*this, std::move(call), std::move(result));
  });
}

void NativeUploadConfigChannel::configure(Value arguments, MethodResult result) {
  const auto baseUrl = Arguments(arguments).string("baseUrl");
  const auto authToken = Arguments(arguments).string("authToken");
  if (!baseUrl || !authToken) return result.error("INVALID_ARGUMENTS", "baseUrl and authToken are required");
  apiClient_.configure(*baseUrl, *authToken);
  logger_.info("⚙️ Native API client configured with base URL: " + *baseUrl);
  result.success(true);
}

void NativeUploadConfigChannel::updateToken(Value arguments, MethodResult result) {
  const auto authToken = Arguments(arguments).string("authToken");
  if (!authToken) return result.error("INVALID_ARGUMENTS", "authToken is required");
  apiClient_.updateAuthToken(*authToken);
  logger_.info("⚙️ Native API auth token updated");
  result.success(true);
}

void NativeUploadConfigChannel::clear(Value, MethodResult result) {
  apiClient_.clearConfiguration();
  logger_.info("⚙️ Native API configuration cleared");
  result.success(true);
}

void NativeUploadConfigChannel::isConfigured(Value, MethodResult result) { result.success(apiClient_.isConfigured()); }

void NativeUploadConfigChannel::incompleteSessions(Value, MethodResult result) {
  using Sessions = std::vector<MacNativeUploadSession>;
  tasks_.start(storage_.savedSessions(), [result = std::move(result)](const Result<Sessions>& sessions) mutable {
    ValueList list;
    for (const MacNativeUploadSession& session : sessions.value_or(Sessions())) {
      if (session.isIncomplete()) list.push_back(sessionMap(session));
    }
    result.success(std::move(list));
  });
}

void NativeUploadConfigChannel::resumeIncomplete(Value, MethodResult result) {
  tasks_.start(manager_.resumeIncompleteSessions(),
               [result = std::move(result)](const Result<void>&) mutable { result.success(true); });
}

void NativeUploadConfigChannel::currentProgress(Value, MethodResult result) {
  result.success(manager_.getCurrentProgress(std::nullopt));
}

void NativeUploadConfigChannel::abortCurrent(Value, MethodResult result) {
  manager_.stopSession(MacNativeBackgroundUploadManager::StopKind::abort, std::nullopt);
  result.success(true);
}

}  // namespace quillbeam
