#pragma once

#include <optional>

#include "chunking/VideoChunkWriter.h"
#include "platform/Dispatch.h"
#include "platform/Logging.h"
#include "platform/capture/ScreenCapture.h"
#include "platform/media/AssetWriter.h"
#include "recording/RecordingStatistics.h"
#include "recording/RecordingTimeline.h"

namespace quillbeam {

/// Receives the screen's pictures, sets the recording's zero with the first complete one and writes the video track.
/// A picture that finds the writer busy is dropped, not waited for. Lives on the video sample queue; created and
/// destroyed elsewhere while that queue has nothing for it.
class ScreenCaptureStreamOutput final : public StreamOutput {
 public:
  struct Parts {
    DispatchQueue& queue;
    StandardOutput& out;
    AssetWriter& assetWriter;
    AssetWriterInput* videoInput;  ///< nullptr: the writer took no video track
    RecordingTimeline& timeline;
    RecordingStatistics& statistics;
    VideoChunkWriter* chunkWriter = nullptr;  ///< gets every picture too, as it was captured
  };
  explicit ScreenCaptureStreamOutput(const Parts& parts) : parts_(parts), queue_(parts.queue) {}

  /// Samples count from here on.
  void startSession();
  SampleDisposition didOutputSampleBuffer(const SampleBuffer& sample, OutputType type) override;
  /// Ends the writer's session at the last picture, or at zero when there was none.
  void finalizeRecording();

 private:
  bool canBeWritten(const SampleBuffer& sample) const RUNS_ON(queue_);
  void beginTimeline(const SampleBuffer& sample) RUNS_ON(queue_);
  SampleDisposition write(const SampleBuffer& sample) RUNS_ON(queue_);
  MediaTime base() const RUNS_ON(queue_);

  const Parts parts_;
  DispatchQueue& queue_;
  bool sessionStarted_ CONFINED_TO(queue_) = false;
  MediaTime firstSampleTime_ CONFINED_TO(queue_) = MediaTime::zero();
  std::optional<SampleBuffer> lastSampleBuffer_ CONFINED_TO(queue_);
  int videoSampleCount_ CONFINED_TO(queue_) = 0;
};

}  // namespace quillbeam
