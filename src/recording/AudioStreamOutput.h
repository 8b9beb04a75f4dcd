#pragma once

#include <map>

#include "base/Weakly.h"
#include "platform/capture/ScreenCapture.h"
#include "recording/SoundTrackWriter.h"

namespace quillbeam {

/// Receives system audio and writes its track. A sample that finds the writer busy is tried once more a millisecond
/// later, then dropped. Lives on the audio sample queue, retries included, so that samples stay in order.
class AudioStreamOutput final : public StreamOutput, private WeaklyHeld {
 public:
  explicit AudioStreamOutput(const SoundTrackWriter::Parts& parts);

  void startSession() { track_.startSession(); }
  SampleDisposition didOutputSampleBuffer(const SampleBuffer& sample, OutputType type) override;
  void finalizeRecording();
  /// Forgets the retries under way: after the last sample, before destruction.
  void cancelRetries();

  template <class Self, class Function>
  friend auto weakly(Self* self, Function function);

 private:
  void scheduleRetry(const SampleBuffer& sample, MediaTime place) RUNS_ON(queue_);
  void retry(const SampleBuffer& sample, MediaTime place) RUNS_ON(queue_);

  DispatchQueue& queue_;
  SoundTrackWriter track_;
  std::map<std::uint64_t, TimerHandle> retries_ CONFINED_TO(queue_);
  std::uint64_t nextRetry_ CONFINED_TO(queue_) = 0;
};

}  // namespace quillbeam
