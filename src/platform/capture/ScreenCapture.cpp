#include "platform/capture/ScreenCapture.h"

#include <utility>

namespace quillbeam {

std::string describe(ScreenCaptureError error) {
  switch (error) {
    case ScreenCaptureError::noDisplayServer:
      return "No display server answers";
    case ScreenCaptureError::noSoundServer:
      return "No sound server answers";
    case ScreenCaptureError::displayGone:
      return "The captured display is gone";
    case ScreenCaptureError::connectionLost:
      return "The display server closed the connection";
    case ScreenCaptureError::duplicateOutput:
      return "The stream already has an output of this type";
    case ScreenCaptureError::notConfigured:
      return "The stream does not capture samples of this type";
    case ScreenCaptureError::notRunning:
      return "The stream is not running";
  }
  std::unreachable();
}

}  // namespace quillbeam
