#include "recording/ScreenCaptureStreamOutput.h"

#include "base/Text.h"
#include "recording/WriterText.h"

namespace quillbeam {

namespace {

constexpr int fewSamples = 4;

}  // namespace

void ScreenCaptureStreamOutput::startSession() {
  queue_.assertCurrent();
  sessionStarted_ = true;
}

SampleDisposition ScreenCaptureStreamOutput::didOutputSampleBuffer(const SampleBuffer& sample, OutputType type) {
  queue_.assertCurrent();
  if (type != OutputType::screen || !canBeWritten(sample)) return SampleDisposition::ignored;
  if (parts_.videoInput == nullptr) return SampleDisposition::ignored;
  if (!parts_.videoInput->isReadyForMoreMediaData()) {
    parts_.statistics.droppedByWriter.fetch_add(1, std::memory_order_relaxed);
    return SampleDisposition::ignored;
  }
  if (!parts_.timeline.recordingBaseTime()) beginTimeline(sample);
  if (firstSampleTime_ == MediaTime::zero()) firstSampleTime_ = sample.presentationTime();
  lastSampleBuffer_ = sample;
  return write(sample);
}

bool ScreenCaptureStreamOutput::canBeWritten(const SampleBuffer& sample) const {
  return sessionStarted_ && sample.isValid() && sample.frameStatus() == FrameStatus::complete;
}

void ScreenCaptureStreamOutput::beginTimeline(const SampleBuffer& sample) {
  const std::string prefix = "🎯 ScreenCaptureStreamOutput: ";
  parts_.out.print(prefix + "First video frame - writer status before session: " + rawStatus(parts_.assetWriter));
  parts_.timeline.setRecordingBaseTimeIfNeeded(sample.presentationTime());
  parts_.timeline.startAssetWriterSessionIfNeeded(MediaTime::zero());
  parts_.out.print(prefix + "Session started - writer status after session: " + rawStatus(parts_.assetWriter));
}

SampleDisposition ScreenCaptureStreamOutput::write(const SampleBuffer& sample) {
  const MediaTime relative = sample.presentationTime() - base();
  const auto copy = sample.copyWithNewTiming({sample.duration(), relative, sample.timing().decodeTime});
  if (!copy) return SampleDisposition::ignored;
  if (parts_.videoInput->append(*copy)) {
    ++videoSampleCount_;
    parts_.statistics.videoFrames.fetch_add(1, std::memory_order_relaxed);
    parts_.statistics.lastVideoNanoseconds.store(relative.toNanoseconds().count(), std::memory_order_relaxed);
  } else {
    parts_.statistics.droppedByWriter.fetch_add(1, std::memory_order_relaxed);
    parts_.out.print("⚠️ ScreenCaptureStreamOutput: videoInput.append() returned false! Writer status: " +
                     rawStatus(parts_.assetWriter) + ", error: " + errorText(parts_.assetWriter));
  }
  if (parts_.chunkWriter != nullptr) parts_.chunkWriter->appendVideo(sample);
  return SampleDisposition::taken;
}

MediaTime ScreenCaptureStreamOutput::base() const {
  return parts_.timeline.recordingBaseTime().value_or(firstSampleTime_);
}

void ScreenCaptureStreamOutput::finalizeRecording() {
  queue_.assertCurrent();
  const std::string prefix = "🎯 ScreenCaptureStreamOutput: ";
  parts_.out.print(prefix + "Total video samples captured: " + std::to_string(videoSampleCount_));
  if (videoSampleCount_ <= fewSamples) {
    parts_.out.print("⚠️ Warning: Very few video samples captured (" + std::to_string(videoSampleCount_) +
                     ") - recording may be too short");
  }
  if (parts_.assetWriter.status() != AssetWriter::Status::writing) return;
  if (!lastSampleBuffer_) {
    parts_.assetWriter.endSession(MediaTime::zero());
    parts_.out.print(prefix + "Session ended at zero (no samples)");
    return;
  }
  const MediaTime end = lastSampleBuffer_->presentationTime() - base();
  parts_.assetWriter.endSession(end);
  // The last picture marks the end and lies at it: the writer cuts it.
  if (videoSampleCount_ > 0) parts_.statistics.videoFrames.fetch_sub(1, std::memory_order_relaxed);
  parts_.out.print(prefix + "Session ended at relative time: " + decimal(end.seconds()));
}

}  // namespace quillbeam
