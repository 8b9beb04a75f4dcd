#pragma once

#include "channels/MethodChannel.h"
#include "recording/MacRecorderManager.h"

namespace quillbeam {

/// "io.quillbeam.app.recording_statistics": figures of the running recording, else of the last one, for whoever shows
/// progress. "getRecordingStatistics" answers nil before the first recording, else a map: "filePath" (string),
/// "durationSeconds" (double), "fileBytes", "videoFrames", "droppedFrames" (integers), "systemAudioLevel",
/// "microphoneLevel" (doubles, peak 0…1 since the call before), "fileIsComplete" (bool: it is finished), "problem"
/// (string or nil: why nothing more reaches the file), "problemDomain" (string or nil) and "uploadProblem" (string or
/// nil: the first reason why bytes are missing at the upload service). Main queue.
class RecordingStatisticsChannel {
 public:
  RecordingStatisticsChannel(BinaryMessenger& messenger, MacRecorderManager& manager);

 private:
  void statistics(Value arguments, MethodResult result);

  MacRecorderManager& manager_;
  MethodChannel channel_;
};

}  // namespace quillbeam
