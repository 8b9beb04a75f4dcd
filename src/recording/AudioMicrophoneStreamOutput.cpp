#include "recording/AudioMicrophoneStreamOutput.h"

namespace quillbeam {

namespace {

constexpr AudioOnlyTrackWriter::Texts fromStream{
    .firstSample = "🎯 AudioMicrophoneStreamOutput: First sample time set and session start requested",
    .sessionNotStarted = "🎯 AudioMicrophoneStreamOutput: Dropping sample - asset writer session not started yet"};

constexpr AudioOnlyTrackWriter::Texts fromCaptureDevice{
    .firstSample = "🎯 AVCapture AudioMicrophoneStreamOutput: First sample time set and session start requested",
    .sessionNotStarted =
        "🎯 AudioMicrophoneStreamOutput (AVCapture): Dropping sample - asset writer session not started yet"};

}  // namespace

SampleDisposition AudioMicrophoneStreamOutput::didOutputSampleBuffer(const SampleBuffer& sample, OutputType type) {
  if (systemVersion_ < streamCapturesMicrophone) {
    out_.print("⚠️ AudioMicrophoneStreamOutput: macOS 15.0+ required for microphone capture");
    return SampleDisposition::ignored;
  }
  if (type != OutputType::microphone) return SampleDisposition::ignored;
  return track_.write(sample, fromStream);
}

SampleDisposition AudioMicrophoneStreamOutput::handleAVCaptureSample(const SampleBuffer& sample) {
  return track_.write(sample, fromCaptureDevice);
}

void AudioMicrophoneStreamOutput::finalizeRecording() {
  track_.summarize("🎯 AudioMicrophoneStreamOutput: Final microphone time: ",
                   "🎯 AudioMicrophoneStreamOutput: No microphone samples captured");
}

}  // namespace quillbeam
