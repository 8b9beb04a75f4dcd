#include "recording/RecordingError.h"

#include <utility>

namespace quillbeam {

std::string describe(RecordingError error) {
  switch (error) {
    case RecordingError::alreadyRecording:
      return "Recording is already in progress";
    case RecordingError::notRecording:
      return "No active recording";
    case RecordingError::noDisplayFound:
      return "No display found for recording";
    case RecordingError::audioSetupFailed:
      return "Failed to setup audio recording";
    case RecordingError::fileCreationFailed:
      return "Failed to create recording file";
    case RecordingError::microphonePermissionDenied:
      return "Microphone permission is required for recording. Please grant permission in System Settings → Privacy & "
             "Security → Microphone";
    case RecordingError::audioCapturePermissionDenied:
      return "Audio capture permission is required for system audio recording. Please grant permission when prompted "
             "or in System Settings → Privacy & Security → Microphone";
    case RecordingError::screenCaptureNotSupported:
      return "Screen capture is not supported on this macOS version. macOS 13.0 or later is required.";
    case RecordingError::noContentSelected:
      return "No window or display selected for screen recording";
    case RecordingError::invalidRecordingMode:
      return "Invalid recording mode specified";
  }
  std::unreachable();
}

}  // namespace quillbeam
