#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/Error.h"
#include "base/MediaTime.h"

namespace quillbeam {

/// How a recording is doing, or how the last one went.
struct RecordingReport {
  std::string filePath;
  MediaTime duration = MediaTime::zero();  ///< of the file so far: the last picture's place on the timeline
  std::int64_t fileBytes = 0;
  std::int64_t videoFrames = 0;
  std::int64_t droppedFrames = 0;  ///< shown by the screen in time, but not in the file
  float systemAudioLevel = 0;      ///< peak since the last report, 0…1
  float microphoneLevel = 0;
  bool fileIsComplete = false;
  std::optional<Error> problem;        ///< why nothing more reaches the file: the writer failed, or the screen is gone
  std::optional<Error> uploadProblem;  ///< the first reason why bytes are missing at the service
};

}  // namespace quillbeam
