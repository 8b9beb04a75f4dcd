#include "recording/AVCaptureMicrophoneManager.h"

#include "recording/AVCaptureMicError.h"

namespace quillbeam {

AVCaptureMicrophoneManager::AVCaptureMicrophoneManager(const Parts& parts,
                                                       std::function<void(const SampleBuffer&)> onSampleBuffer)
    : parts_(parts),
      onSampleBuffer_(std::move(onSampleBuffer)),
      captureQueue_(parts.dispatch.makeSerialQueue("com.quillbeam.avcapture.mic")) {}

AVCaptureMicrophoneManager::~AVCaptureMicrophoneManager() = default;

Result<void> AVCaptureMicrophoneManager::startCapture() {
  if (isCapturing()) {
    print("🎤", "Already capturing");
    return success;
  }
  if (!hasPermission()) return AVCaptureMicError::permissionDenied;
  TRY(captureSession_, makeSession());
  captureSession_->startRunning();
  print("✅", "Microphone capture started");
  return success;
}

bool AVCaptureMicrophoneManager::hasPermission() {
  switch (parts_.permissions.microphoneAuthorization()) {
    case AuthorizationStatus::notDetermined:
      return parts_.permissions.requestMicrophoneAccess();
    case AuthorizationStatus::restricted:
    case AuthorizationStatus::denied:
      return false;
    case AuthorizationStatus::authorized:
      return true;
  }
  std::unreachable();
}

Result<std::unique_ptr<CaptureSession>> AVCaptureMicrophoneManager::makeSession() {
  const auto device = parts_.devices.defaultAudioDevice();
  if (!device) {
    print("❌", "No microphone device found");
    return AVCaptureMicError::noMicrophoneDevice;
  }
  print("🎤", "Using microphone: " + device->name);
  auto input = parts_.devices.makeInput(*device);
  if (!input) {
    print("❌", "Failed to create audio input: " + input.error().description());
    return inputCreationFailed(input.error());
  }
  auto session = parts_.devices.makeSession();
  if (!session->addInput(*std::move(input))) {
    print("❌", "Cannot add audio input to session");
    return AVCaptureMicError::cannotAddInput;
  }
  if (!session->addAudioDataOutput(onSampleBuffer_, *captureQueue_)) {
    print("❌", "Cannot add audio output to session");
    return AVCaptureMicError::cannotAddOutput;
  }
  return session;
}

void AVCaptureMicrophoneManager::stopCapture() {
  if (!isCapturing()) return;
  captureSession_->stopRunning();
  captureSession_.reset();
  print("✅", "Microphone capture stopped");
}

void AVCaptureMicrophoneManager::print(std::string_view mark, std::string_view text) const {
  parts_.out.print(std::string(mark) + " AVCaptureMicrophoneManager: " + std::string(text));
}

}  // namespace quillbeam
