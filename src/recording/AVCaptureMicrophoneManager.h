#pragma once

#include <functional>
#include <memory>

#include "platform/Dispatch.h"
#include "platform/Logging.h"
#include "platform/Permissions.h"
#include "platform/capture/CaptureDevices.h"

namespace quillbeam {

/// Captures the default microphone through a capture-device session, for systems whose screen stream does not. Main
/// queue; samples arrive on its own queue, "com.quillbeam.avcapture.mic".
class AVCaptureMicrophoneManager {
 public:
  struct Parts {
    Dispatch& dispatch;
    StandardOutput& out;
    CapturePermissions& permissions;
    CaptureDevices& devices;
  };
  AVCaptureMicrophoneManager(const Parts& parts, std::function<void(const SampleBuffer&)> onSampleBuffer);
  ~AVCaptureMicrophoneManager();

  /// Blocks while the user is asked for permission. `AVCaptureMicError`s; nothing runs after a failure.
  Result<void> startCapture();
  void stopCapture();
  bool isCapturing() const { return captureSession_ != nullptr; }

 private:
  bool hasPermission();
  Result<std::unique_ptr<CaptureSession>> makeSession();
  void print(std::string_view mark, std::string_view text) const;

  Parts parts_;
  std::function<void(const SampleBuffer&)> onSampleBuffer_;
  std::unique_ptr<DispatchQueue> captureQueue_;
  std::unique_ptr<CaptureSession> captureSession_;
};

}  // namespace quillbeam
