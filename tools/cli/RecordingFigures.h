#pragma once

#include <cstdint>
#include <string>

#include "base/Value.h"

namespace quillbeam::cli {

/// How a recording is doing, as the native half reports it.
struct RecordingFigures {
  std::string filePath;
  double durationSeconds = 0;
  std::int64_t fileBytes = 0;
  std::int64_t videoFrames = 0;
  std::int64_t droppedFrames = 0;
  double systemAudioLevel = 0;  ///< peak, 0…1
  double microphoneLevel = 0;
  bool fileIsComplete = false;
  std::string problem;        ///< why nothing more reaches the file; empty while all is well
  std::string uploadProblem;  ///< the first reason why bytes are missing at the service; empty while none are

  static RecordingFigures fromValue(const Value& value);
};

}  // namespace quillbeam::cli
