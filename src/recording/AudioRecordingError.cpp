#include "recording/AudioRecordingError.h"

#include <utility>

namespace quillbeam {

std::string describe(AudioRecordingError error) {
  switch (error) {
    case AudioRecordingError::alreadyRecording:
      return "Audio recording is already in progress";
    case AudioRecordingError::notRecording:
      return "No active audio recording";
    case AudioRecordingError::noDisplayFound:
      return "No display found for audio capture";
    case AudioRecordingError::fileCreationFailed:
      return "Failed to create audio recording file";
    case AudioRecordingError::screenCaptureNotSupported:
      return "Screen capture is not supported for audio recording";
    case AudioRecordingError::postProcessingFailed:
      return "Failed to process multi-track audio recording";
    case AudioRecordingError::nothingRecorded:
      return "Nothing was recorded: there was no sound";
  }
  std::unreachable();
}

}  // namespace quillbeam
