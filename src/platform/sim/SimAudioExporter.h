#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/Dispatch.h"
#include "platform/media/AudioExporter.h"
#include "platform/sim/SimMediaWriters.h"

namespace quillbeam {

/// What a simulated mix's file holds: a line that names the source, the tracks and their volumes.
std::string simMixContent(const AudioMix& mix);

/// Mixes simulated movies: takes its virtual time, writes a file that says what it is made of, and lists the tracks of
/// movies and of its own files. One thread.
class SimAudioExporter final : public AudioExporter {
 public:
  SimAudioExporter(Dispatch& dispatch, Files& files, const SimMediaWriters& movies)
      : dispatch_(dispatch), files_(files), movies_(movies) {}

  Result<std::vector<AudioTrack>> audioTracks(const Path& file) override;
  std::unique_ptr<AudioExport> makeExport(AudioMix mix) override;

  // The test's side.

  /// All mixes that were completed, in order.
  const std::vector<AudioMix>& mixes() const { return mixes_; }
  /// The next export that gets there fails, once, when its progress has reached `progress`.
  void failNext(Error error, double progress = 0.5) { failure_ = Failure{std::move(error), progress}; }
  /// How many seconds of sound are mixed in one second.
  void setSpeed(double speed) { speed_ = speed; }

 private:
  friend class SimAudioExport;
  struct Failure {
    Error error;
    double progress = 0;
  };
  struct Output {
    AudioMix mix;
    MediaTime duration;
  };

  std::optional<Error> takeFailure(double progress);
  Result<void> write(const AudioMix& mix, MediaTime duration);

  Dispatch& dispatch_;
  Files& files_;
  const SimMediaWriters& movies_;
  std::vector<AudioMix> mixes_;
  std::vector<Output> outputs_;
  std::optional<Failure> failure_;
  double speed_ = 60;
};

}  // namespace quillbeam
