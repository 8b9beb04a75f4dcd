#pragma once

#include "platform/SystemVersion.h"
#include "platform/capture/ScreenCapture.h"
#include "recording/SoundTrackWriter.h"

namespace quillbeam {

/// Receives the microphone, from the screen stream or from a capture-device session, and writes its track. A sample
/// that finds the writer busy is dropped at once. Lives on the microphone sample queue.
class MicrophoneStreamOutput final : public StreamOutput {
 public:
  MicrophoneStreamOutput(const SoundTrackWriter::Parts& parts, SystemVersion systemVersion);

  void startSession() { track_.startSession(); }
  SampleDisposition didOutputSampleBuffer(const SampleBuffer& sample, OutputType type) override;
  /// The same for samples of the capture-device session.
  SampleDisposition handleAVCaptureSample(const SampleBuffer& sample);
  void finalizeRecording();

 private:
  struct Origin {
    std::string_view leadLinePrefix;
    std::string_view sessionNotStarted;
  };
  static const Origin stream;
  static const Origin captureDevice;
  SampleDisposition handle(const SampleBuffer& sample, const Origin& origin) RUNS_ON(queue_);

  DispatchQueue& queue_;
  StandardOutput& out_;
  const SystemVersion systemVersion_;
  SoundTrackWriter track_;
};

}  // namespace quillbeam
