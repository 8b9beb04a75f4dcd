#pragma once

#include "platform/SystemVersion.h"
#include "platform/capture/ScreenCapture.h"
#include "recording/AudioOnlyTrackWriter.h"

namespace quillbeam {

/// Receives the microphone, from the stream or from a capture-device session, for a recording of sound alone and writes
/// its track. Lives on its sample queue.
class AudioMicrophoneStreamOutput final : public StreamOutput {
 public:
  AudioMicrophoneStreamOutput(const AudioOnlyTrackWriter::Parts& parts, SystemVersion systemVersion)
      : out_(parts.out), systemVersion_(systemVersion), track_(parts) {}

  void startSession() { track_.startSession(); }
  SampleDisposition didOutputSampleBuffer(const SampleBuffer& sample, OutputType type) override;
  /// The same for samples of the capture-device session.
  SampleDisposition handleAVCaptureSample(const SampleBuffer& sample);
  void finalizeRecording();
  AudioOnlyTrackWriter& track() { return track_; }

 private:
  StandardOutput& out_;
  const SystemVersion systemVersion_;
  AudioOnlyTrackWriter track_;
};

}  // namespace quillbeam
