#pragma once

#include <atomic>
#include <functional>
#include <optional>
#include <string_view>

#include "platform/Dispatch.h"
#include "platform/Logging.h"
#include "platform/capture/ScreenCapture.h"
#include "platform/media/AssetWriter.h"
#include "recording/RecordingStatistics.h"
#include "recording/WriterSession.h"

namespace quillbeam {

/// What the two sound receivers of an audio-only recording have in common. There is no zero that they share: each track
/// begins with its own first sample. A sample that finds the writer busy is dropped. Lives on its receiver's queue.
class AudioOnlyTrackWriter {
 public:
  struct Parts {
    DispatchQueue& queue;
    StandardOutput& out;
    AssetWriter& assetWriter;
    AssetWriterInput& input;
    WriterSession& session;
    std::function<void(const SampleBuffer& captured)> alsoTo;  ///< when set, gets what is written too, as captured
  };
  /// What is said in the log.
  struct Texts {
    std::string_view firstSample;
    std::string_view sessionNotStarted;
  };

  explicit AudioOnlyTrackWriter(const Parts& parts) : parts_(parts), queue_(parts.queue) {}

  void startSession();
  SampleDisposition write(const SampleBuffer& sample, const Texts& texts);
  /// Prints "<finalLine><seconds>", or `noSamplesLine`.
  void summarize(std::string_view finalLine, std::string_view noSamplesLine) const;

  MediaTime written() const { return MediaTime::nanoseconds(writtenNanoseconds_); }  ///< the track's length; any thread
  float takeLevel() { return level_.take(); }                                        ///< any thread

 private:
  MediaTime place(const SampleBuffer& sample, std::string_view firstSampleLine) RUNS_ON(queue_);
  void append(const SampleBuffer& sample, MediaTime place) RUNS_ON(queue_);

  const Parts parts_;
  DispatchQueue& queue_;
  bool sessionStarted_ CONFINED_TO(queue_) = false;
  std::optional<MediaTime> firstSampleTime_ CONFINED_TO(queue_);
  SampleBuffer lastSampleBuffer_ CONFINED_TO(queue_);
  LevelMeter level_;
  std::atomic<std::int64_t> writtenNanoseconds_ = 0;
};

}  // namespace quillbeam
