#pragma once

#include "platform/capture/CaptureDevices.h"
#include "platform/linux/pulse/PulseContext.h"

namespace quillbeam {

/// The microphone of the sound server: its default source. An input follows that default while it is open, whichever
/// device it was made of. Main queue; the context outlives it.
class PulseCaptureDevices : public CaptureDevices {
 public:
  explicit PulseCaptureDevices(PulseContext& context) : context_(context) {}

  /// Waits for a server that is about to answer, a second and a half at most.
  std::optional<CaptureDevice> defaultAudioDevice() override;
  /// The microphone is recorded from here on. `ScreenCaptureError::noSoundServer` when no sound server answers.
  Result<std::unique_ptr<CaptureDeviceInput>> makeInput(const CaptureDevice& device) override;
  std::unique_ptr<CaptureSession> makeSession() override;

 private:
  PulseContext& context_;
};

}  // namespace quillbeam
