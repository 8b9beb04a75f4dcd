#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "platform/Dispatch.h"
#include "platform/Logging.h"
#include "platform/media/AssetWriter.h"
#include "recording/RecordingStatistics.h"
#include "recording/RecordingTimeline.h"

namespace quillbeam {

/// How one kind of sound names itself in the log.
struct SoundTrackTexts {
  std::string_view receiver;  ///< "AudioStreamOutput"
  std::string_view input;     ///< "audioInput"
  std::string_view lead;      ///< "system audio": "Applying <lead> lead offset"
  std::string_view early;     ///< "audio": "skipping early <early>"
  std::string_view samples;   ///< "audio samples": "Total <samples> captured"
  std::string_view final;     ///< "audio": "Final <final> time"
};

/// What system audio and microphone have in common: where a sound sample lies on the recording's timeline, and writing
/// it there. The lead of a track (sound that began before the first picture) is decided once, by its first sample after
/// the timeline's zero is known. Lives on its receiver's queue.
class SoundTrackWriter {
 public:
  struct Parts {
    DispatchQueue& queue;
    StandardOutput& out;
    AssetWriter& assetWriter;
    AssetWriterInput& input;
    RecordingTimeline& timeline;
    LevelMeter& level;
    std::function<void(const SampleBuffer& captured)> alsoTo = nullptr;  ///< gets what is written too, as captured
  };
  SoundTrackWriter(const Parts& parts, const SoundTrackTexts& texts)
      : parts_(parts), texts_(texts), queue_(parts.queue) {}

  void startSession();
  /// False, with its reason in the log, for samples outside the session and invalid ones.
  bool accepts(const SampleBuffer& sample) const;
  /// True, with a line in the log, while pictures are expected and none has set the zero yet.
  bool waitsForVideo() const;
  /// Decides the lead when it is undecided and returns the sample's place on the timeline, never below zero.
  MediaTime place(const SampleBuffer& sample, std::string_view leadLinePrefix);
  bool isReady() const { return parts_.input.isReadyForMoreMediaData(); }
  /// False, with `dropLine` in the log, while the writer's session has not started.
  bool writerSessionStarted(std::string_view dropLine) const;

  enum class Attempt { first, retry };
  enum class Outcome { dropped, refused, appended };
  Outcome write(const SampleBuffer& sample, MediaTime place, Attempt attempt);
  void summarize(int fewSamples) const;

  void print(std::string_view text) const { parts_.out.print(line(text)); }

 private:
  std::string line(std::string_view text) const;
  MediaTime base() const RUNS_ON(queue_);
  void resolveLead(const SampleBuffer& sample, std::string_view leadLinePrefix) RUNS_ON(queue_);

  const Parts parts_;
  const SoundTrackTexts texts_;
  DispatchQueue& queue_;
  bool sessionStarted_ CONFINED_TO(queue_) = false;
  MediaTime firstSampleTime_ CONFINED_TO(queue_) = MediaTime::zero();
  SampleBuffer lastSampleBuffer_ CONFINED_TO(queue_);
  int sampleCount_ CONFINED_TO(queue_) = 0;
  MediaTime leadOffset_ CONFINED_TO(queue_) = MediaTime::zero();
  bool leadResolved_ CONFINED_TO(queue_) = false;
};

}  // namespace quillbeam
