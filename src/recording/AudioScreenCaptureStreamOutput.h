#pragma once

#include <optional>

#include "platform/Dispatch.h"
#include "platform/Logging.h"
#include "platform/capture/ScreenCapture.h"
#include "platform/media/AssetWriter.h"
#include "recording/WriterSession.h"

namespace quillbeam {

/// Receives the pictures that a stream delivers beside its sound. Nobody sees them; they tell how long the recording
/// is. Lives on its sample queue.
class AudioScreenCaptureStreamOutput final : public StreamOutput {
 public:
  struct Parts {
    DispatchQueue& queue;
    StandardOutput& out;
    AssetWriter& assetWriter;
    WriterSession& session;
  };
  explicit AudioScreenCaptureStreamOutput(const Parts& parts) : parts_(parts), queue_(parts.queue) {}

  /// Samples count from here on.
  void startSession();
  SampleDisposition didOutputSampleBuffer(const SampleBuffer& sample, OutputType type) override;
  /// Ends the writer's session at the last picture, or at zero when there was none.
  void finalizeRecording();

 private:
  const Parts parts_;
  DispatchQueue& queue_;
  bool sessionStarted_ CONFINED_TO(queue_) = false;
  std::optional<MediaTime> firstSampleTime_ CONFINED_TO(queue_);
  SampleBuffer lastSampleBuffer_ CONFINED_TO(queue_);
};

}  // namespace quillbeam
