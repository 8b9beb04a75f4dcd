#include "platform/linux/pulse/PulseCaptureDevices.h"

#include <utility>

#include "platform/linux/pulse/PulseCaptureSession.h"
#include "platform/linux/pulse/PulseSoundSources.h"

namespace quillbeam {

std::optional<CaptureDevice> PulseCaptureDevices::defaultAudioDevice() {
  if (!context_.answers(soundServerPatience)) return std::nullopt;
  const std::optional<PulseDevice> microphone = context_.defaults().microphone;
  if (!microphone) return std::nullopt;
  return CaptureDevice{microphone->source, microphone->description};
}

Result<std::unique_ptr<CaptureDeviceInput>> PulseCaptureDevices::makeInput(const CaptureDevice&) {
  TRY(auto source, PulseSoundSources(context_).openMicrophone());
  return std::make_unique<PulseCaptureInput>(std::move(source));
}

std::unique_ptr<CaptureSession> PulseCaptureDevices::makeSession() { return std::make_unique<PulseCaptureSession>(); }

}  // namespace quillbeam
