#pragma once

#include "platform/capture/ScreenCapture.h"
#include "recording/AudioOnlyTrackWriter.h"

namespace quillbeam {

/// Receives the system's sound for a recording of sound alone and writes its track. Lives on its sample queue.
class AudioOnlyStreamOutput final : public StreamOutput {
 public:
  explicit AudioOnlyStreamOutput(const AudioOnlyTrackWriter::Parts& parts) : track_(parts) {}

  void startSession() { track_.startSession(); }
  SampleDisposition didOutputSampleBuffer(const SampleBuffer& sample, OutputType type) override;
  void finalizeRecording();
  AudioOnlyTrackWriter& track() { return track_; }

 private:
  AudioOnlyTrackWriter track_;
};

}  // namespace quillbeam
