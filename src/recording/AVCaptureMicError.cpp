#include "recording/AVCaptureMicError.h"

#include <utility>

namespace quillbeam {

std::string describe(AVCaptureMicError error) {
  switch (error) {
    case AVCaptureMicError::inputCreationFailed:
      return "Failed to create microphone input: ";
    case AVCaptureMicError::permissionDenied:
      return "Microphone permission is required. Please grant permission in System Settings → Privacy & Security → "
             "Microphone.";
    case AVCaptureMicError::noMicrophoneDevice:
      return "No microphone device found on this Mac.";
    case AVCaptureMicError::cannotAddInput:
      return "Cannot add microphone input to capture session.";
    case AVCaptureMicError::cannotAddOutput:
      return "Cannot add audio output to capture session.";
  }
  std::unreachable();
}

Error inputCreationFailed(Error reason) {
  std::string text = describe(AVCaptureMicError::inputCreationFailed) + reason.description();
  return Error(AVCaptureMicError::inputCreationFailed)
      .withDescription(std::move(text))
      .withUnderlying(std::move(reason));
}

}  // namespace quillbeam
