#include "recording/MicrophoneFallback.h"

#include <utility>

namespace quillbeam {

MicrophoneFallback::MicrophoneFallback(Platform& platform, std::string_view speaker,
                                       std::function<void(const SampleBuffer&)> onSampleBuffer)
    : out_(platform.standardOutput),
      speaker_(speaker),
      manager_({platform.dispatch, platform.standardOutput, platform.permissions, platform.captureDevices},
               std::move(onSampleBuffer)) {}

Result<std::unique_ptr<MicrophoneFallback>> MicrophoneFallback::start(
    Platform& platform, std::string_view speaker, std::function<void(const SampleBuffer&)> onSampleBuffer) {
  std::unique_ptr<MicrophoneFallback> fallback(new MicrophoneFallback(platform, speaker, std::move(onSampleBuffer)));
  fallback->print("🎤", "Starting AVCaptureDevice microphone fallback for macOS 14.4");
  TRY_VOID(fallback->manager_.startCapture());
  fallback->print("🎤", "AVCaptureDevice microphone fallback started successfully");
  return fallback;
}

void MicrophoneFallback::stop() {
  if (!manager_.isCapturing()) return;
  manager_.stopCapture();
  print("🎯", "AVCapture microphone fallback stopped");
}

void MicrophoneFallback::print(std::string_view mark, std::string_view text) const {
  out_.print(std::string(mark) + " " + speaker_ + std::string(text));
}

}  // namespace quillbeam
