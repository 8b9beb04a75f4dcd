#pragma once

#include <string>
#include <string_view>

namespace quillbeam {

/// Why a recording could not start. The descriptions reach the user.
enum class RecordingError {
  alreadyRecording,
  notRecording,
  noDisplayFound,
  audioSetupFailed,
  fileCreationFailed,
  microphonePermissionDenied,
  audioCapturePermissionDenied,
  screenCaptureNotSupported,
  noContentSelected,
  invalidRecordingMode,
};
std::string describe(RecordingError error);
constexpr std::string_view errorDomain(RecordingError) { return "RecordingError"; }

}  // namespace quillbeam
