#include "app/RecordingStatisticsChannel.h"

#include "app/ChannelNames.h"
#include "channels/MethodTable.h"

namespace quillbeam {

RecordingStatisticsChannel::RecordingStatisticsChannel(BinaryMessenger& messenger, MacRecorderManager& manager)
    : manager_(manager), channel_(messenger, std::string(channel_names::recordingStatistics)) {
  static const MethodTable<RecordingStatisticsChannel> methods = {
      {"getRecordingStatistics", &RecordingStatisticsChannel::statistics},
  };
  channel_.setCallHandler(
      [this](MethodCall call, MethodResult result) { methods.dispatch(*this, std::move(call), std::move(result)); });
}

void RecordingStatisticsChannel::statistics(Value, MethodResult result) {
  const auto report = manager_.report();
  if (!report) return result.success();
  const auto& problem = report->problem;
  const auto& uploadProblem = report->uploadProblem;
  result.success(ValueMap{{"filePath", report->filePath},
                          {"durationSeconds", report->duration.seconds()},
                          {"fileBytes", report->fileBytes},
                          {"videoFrames", report->videoFrames},
                          {"droppedFrames", report->droppedFrames},
                          {"systemAudioLevel", static_cast<double>(report->systemAudioLevel)},
                          {"microphoneLevel", static_cast<double>(report->microphoneLevel)},
                          {"fileIsComplete", report->fileIsComplete},
                          {"problem", problem ? Value(problem->fullDescription()) : Value()},
                          {"problemDomain", problem ? Value(problem->domain()) : Value()},
                          {"uploadProblem", uploadProblem ? Value(uploadProblem->description()) : Value()}});
}

}  // namespace quillbeam
