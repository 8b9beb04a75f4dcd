#include "app/RecordingRecoveryChannel.h"

#include "app/ChannelNames.h"
#include "channels/Arguments.h"
#include "channels/MethodTable.h"

namespace quillbeam {

namespace {

constexpr double nominalSegmentSeconds = 10;
constexpr std::int64_t defaultDays = 7;
constexpr int mostKept = 5;

ValueMap recoveryMap(const SegmentBackupMetadata& recording) {
  return {{"id", recording.id},
          {"teamId", recording.teamId},
          {"folderId", recording.folderId},
          {"fileName", recording.fileName},
          {"segmentCount", recording.segmentCount()},
          {"estimatedDuration", recording.segmentCount() * nominalSegmentSeconds},
          {"lastModified", secondsSince1970(recording.lastModified)},
          {"recordingType", toText(recording.recordingType)}};
}

}  // namespace

RecordingRecoveryChannel::RecordingRecoveryChannel(BinaryMessenger& messenger, Dispatch& dispatch,
                                                   StoredRecordings& recordings, const Logger& logger)
    : recordings_(recordings),
      logger_(logger),
      channel_(messenger, std::string(channel_names::recordingRecovery)),
      diskQueue_(dispatch.makeSerialQueue("io.quillbeam.recording.recovery")),
      tasks_(dispatch.main()) {
  static const MethodTable<RecordingRecoveryChannel> methods = {
      {"getIncompleteRecordings", &RecordingRecoveryChannel::incompleteRecordings},
      {"recoverRecording", &RecordingRecoveryChannel::recover},
      {"cleanupRecording", &RecordingRecoveryChannel::cleanUp},
      {"cleanupOldRecordings", &RecordingRecoveryChannel::cleanUpOld},
  };
  channel_.setCallHandler([this](MethodCall call, MethodResult result) {
    logger_.info("🔄 macOS: Recording recovery method called: " + call.method);
    methods.dispatch(*this, std::move(call), std::move(result));
  });
}

template <class Work>
void RecordingRecoveryChannel::answer(MethodResult result, Work work) {
  tasks_.start(runOn<Value>(*diskQueue_, std::move(work)),
               [result = std::move(result)](Result<Value> value) mutable { result.success(*std::move(value)); });
}

void RecordingRecoveryChannel::incompleteRecordings(Value, MethodResult result) {
  answer(std::move(result), [this]() -> Result<Value> {
    ValueList list;
    for (const auto& recording : recordings_.getIncompleteRecordings()) list.push_back(recoveryMap(recording));
    logger_.info("🔄 Found " + std::to_string(list.size()) + " incomplete recordings for recovery");
    return Value(std::move(list));
  });
}

void RecordingRecoveryChannel::recover(Value arguments, MethodResult result) {
  const auto id = Arguments(arguments).string("recordingId");
  if (!id) return result.error("INVALID_ARGS", "Missing recordingId", arguments);
  answer(std::move(result), [this, id = *id]() -> Result<Value> {
    const auto file = recordings_.recoverRecording(id);
    if (!file) logger_.error("❌ Failed to recover recording: " + id);
    return Value(file);
  });
}

void RecordingRecoveryChannel::cleanUp(Value arguments, MethodResult result) {
  const auto id = Arguments(arguments).string("recordingId");
  if (!id) return result.error("INVALID_ARGS", "Missing recordingId");
  answer(std::move(result), [this, id = *id]() -> Result<Value> {
    recordings_.cleanupRecording(id);
    return Value(true);
  });
}

void RecordingRecoveryChannel::cleanUpOld(Value arguments, MethodResult result) {
  const auto days = Arguments(arguments).integer("days").value_or(defaultDays);
  answer(std::move(result), [this, days]() -> Result<Value> {
    recordings_.cleanupOldRecordings(static_cast<int>(days), mostKept);
    return Value(true);
  });
}

}  // namespace quillbeam
