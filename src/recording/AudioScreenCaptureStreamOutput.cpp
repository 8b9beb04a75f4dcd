#include "recording/AudioScreenCaptureStreamOutput.h"

#include "base/Text.h"

namespace quillbeam {

void AudioScreenCaptureStreamOutput::startSession() {
  queue_.assertCurrent();
  sessionStarted_ = true;
}

SampleDisposition AudioScreenCaptureStreamOutput::didOutputSampleBuffer(const SampleBuffer& sample, OutputType type) {
  queue_.assertCurrent();
  if (!sessionStarted_ || !sample.isValid() || type != OutputType::screen) return SampleDisposition::ignored;
  if (!firstSampleTime_) {
    firstSampleTime_ = sample.presentationTime();
    parts_.session.startIfNeeded(MediaTime::zero());
  }
  lastSampleBuffer_ = sample;
  return SampleDisposition::taken;
}

void AudioScreenCaptureStreamOutput::finalizeRecording() {
  queue_.assertCurrent();
  if (parts_.assetWriter.status() != AssetWriter::Status::writing) return;
  if (!firstSampleTime_) {
    parts_.assetWriter.endSession(MediaTime::zero());
    return parts_.out.print("🎯 AudioScreenCaptureStreamOutput: Ending session at zero (no samples)");
  }
  const MediaTime end = lastSampleBuffer_.presentationTime() - *firstSampleTime_;
  parts_.assetWriter.endSession(end);
  parts_.out.print("🎯 AudioScreenCaptureStreamOutput: Audio-only mode - ending session at: " + decimal(end.seconds()));
}

}  // namespace quillbeam
