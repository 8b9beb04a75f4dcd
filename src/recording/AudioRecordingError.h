#pragma once

#include <string>
#include <string_view>

namespace quillbeam {

/// Why a recording of sound alone failed. The descriptions reach the user.
enum class AudioRecordingError {
  alreadyRecording,
  notRecording,
  noDisplayFound,
  fileCreationFailed,
  screenCaptureNotSupported,
  postProcessingFailed,
  nothingRecorded,
};
std::string describe(AudioRecordingError error);
constexpr std::string_view errorDomain(AudioRecordingError) { return "AudioRecordingError"; }

}  // namespace quillbeam
