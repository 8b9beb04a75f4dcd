#include "app/MacRecorderChannel.h"

#include <chrono>

#include "app/ChannelNames.h"
#include "channels/Arguments.h"
#include "channels/MethodTable.h"
#include "chunking/ChunkUploadError.h"

namespace quillbeam {

namespace {

std::int64_t millisecondsSince1970(Date date) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(date.time_since_epoch()).count();
}

}  // namespace

MacRecorderChannel::MacRecorderChannel(BinaryMessenger& messenger, Platform& platform, MacRecorderManager& manager,
                                       RecorderEventsChannel& events, const Logger& logger)
    : platform_(platform),
      manager_(manager),
      events_(events),
      logger_(logger),
      channel_(messenger, std::string(channel_names::macRecorder)),
      tasks_(platform.dispatch.main()) {
  static const MethodTable<MacRecorderChannel> methods = {
      {"startMacRecording", &MacRecorderChannel::start},      {"stopMacRecording", &MacRecorderChannel::stop},
      {"pauseMacRecording", &MacRecorderChannel::pause},      {"resumeMacRecording", &MacRecorderChannel::resume},
      {"getMacRecordingStatus", &MacRecorderChannel::status},
  };
  channel_.setCallHandler([this](MethodCall call, MethodResult result) {
    logger_.info("🎬 macOS: Recorder method called: " + call.method);
    methods.dispatch(*this, std::move(call), std::move(result));
  });
}

void MacRecorderChannel::start(Value arguments, MethodResult result) {
  const auto filePath = Arguments(arguments).string("filePath");
  if (!filePath) return result.error("INVALID_ARGUMENTS", "File path required");
  const std::string entryId = "pending_" + platform_.random.uuid().string();
  MacRecorderManager::StartRequest request{.filePath = *filePath,
                                           .config = Arguments(arguments).map("config").value_or(ValueMap()),
                                           .teamId = Arguments(arguments).string("teamId"),
                                           .folderId = Arguments(arguments).string("folderId"),
                                           .fileName = Arguments(arguments).string("fileName"),
                                           .uploadDelegate = nullptr,
                                           .tempFileId = entryId};
  tasks_.start(
      manager_.startMacRecording(std::move(request)),
      [this, arguments = std::move(arguments), entryId, result = std::move(result)](Result<void> started) mutable {
        if (!started) return result.error("RECORDING_ERROR", started.error().description());
        emitStarted(arguments, entryId);
        result.success();
      });
}

void MacRecorderChannel::emitStarted(const Value& arguments, const std::string& entryId) {
  const Arguments given(arguments);
  const std::int64_t startTime =
      given.integer("recordingStartTimeMs").value_or(millisecondsSince1970(platform_.dispatch.now()));
  events_.emit("started", entryId,
               {{"fileName", given.string("fileName").value_or("Recording")},
                {"teamId", given.string("teamId").value_or("")},
                {"folderId", given.string("folderId").value_or("recents")},
                {"recordingStartTimeMs", startTime}});
}

void MacRecorderChannel::stop(Value, MethodResult result) {
  const auto known = manager_.currentNativeUploadFileId();
  tasks_.start(manager_.stopMacRecording(),
               [this, known, result = std::move(result)](const Result<StopRecordingResult>& stopped) mutable {
                 if (!stopped) return answerFailedStop(stopped.error(), known, std::move(result));
                 const auto fileId = known ? known : stopped->nativeUploadFileId;
                 if (fileId) events_.emit("stopped", *fileId);
                 result.success(stopped->toValue());
               });
}

void MacRecorderChannel::answerFailedStop(const Error& error, const std::optional<std::string>& fileId,
                                          MethodResult result) {
  if (!error.is(ChunkUploadError::uploadFailed)) return result.error("STOP_ERROR", error.description());
  const Value path = error.payload()->at("localBackupPath");
  if (fileId) {
    events_.emit("uploadFailed", *fileId, {{"error", error.description()}, {"localBackupPath", path}});
  }
  ValueMap details;
  if (!path.isNil()) details.set("localBackupPath", path);
  result.error("UPLOAD_FAILED", error.description(), std::move(details));
}

void MacRecorderChannel::pause(Value, MethodResult result) { answerPause(manager_.pause(), std::move(result)); }

void MacRecorderChannel::resume(Value, MethodResult result) { answerPause(manager_.resume(), std::move(result)); }

void MacRecorderChannel::answerPause(MacRecorderManager::PauseChange change, MethodResult result) {
  if (change == MacRecorderManager::PauseChange::changed) {
    logger_.info("⚠️ Pause/Resume not yet implemented for ScreenCaptureKit recording");
  }
  result.success();
}

void MacRecorderChannel::status(Value, MethodResult result) { result.success(manager_.getMacRecordingStatus()); }

}  // namespace quillbeam
