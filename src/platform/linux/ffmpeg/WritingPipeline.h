#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "platform/linux/ffmpeg/AudioTrackFeed.h"
#include "platform/linux/ffmpeg/PacketMailbox.h"
#include "platform/linux/ffmpeg/PacketOutput.h"
#include "platform/linux/ffmpeg/SessionTimes.h"
#include "platform/linux/ffmpeg/TrackStarts.h"

namespace quillbeam {

/// Encodes the sound, takes the coded pictures and gives all packets to each of its outputs. Lives on the writing
/// thread.
class WritingPipeline {
 public:
  /// Where a track's packets come from: sound it encodes itself, coded pictures arrive.
  struct Track {
    TrackFormat format;
    std::unique_ptr<AudioTrackFeed> sound;  ///< null for the track of pictures
  };
  using Outputs = std::vector<std::unique_ptr<PacketOutput>>;

  /// `pictures` is nullptr when no track has pictures.
  WritingPipeline(std::vector<Track> tracks, PacketMailbox* pictures, const SessionTimes& session, Outputs outputs);

  enum class Progress { none, some, ended };

  /// Does what can be done now. `ended` when all tracks are complete and written.
  Result<Progress> step();
  /// Once ended, the outputs one after the other.
  Result<void> finish();
  /// After a failed step.
  void salvage();
  /// Instead of any further step.
  void discard();

 private:
  void push(std::size_t track, const EncodedPacket& packet);
  PacketSink sinkOf(std::size_t track);
  void endTrack(std::size_t track, std::optional<MediaTime> end);
  Result<bool> takePictures();
  Result<bool> encodeSound();
  Result<void> startMissingTracks();
  Result<bool> write();

  std::vector<Track> tracks_;
  PacketMailbox* pictures_;
  const SessionTimes& session_;
  Outputs outputs_;
  TrackStarts starts_;
  std::size_t runningTracks_;
  bool picturesEnded_ = false;
};

}  // namespace quillbeam
