#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <vector>

#include "platform/linux/ffmpeg/AudioTrackFeed.h"
#include "platform/linux/ffmpeg/FragmentMuxer.h"
#include "platform/linux/ffmpeg/Interleaver.h"
#include "platform/linux/ffmpeg/MovieFile.h"
#include "platform/linux/ffmpeg/PacketMailbox.h"
#include "platform/linux/ffmpeg/SessionTimes.h"

namespace quillbeam {

/// Encodes the sound, sorts all tracks' packets into fragments and writes them to the file. Lives on the writing
/// thread.
class MoviePipeline {
 public:
  /// Where a track's packets come from: sound it encodes itself, coded pictures arrive.
  struct Track {
    TrackFormat format;
    std::unique_ptr<AudioTrackFeed> sound;  ///< null for the track of pictures
  };

  /// `pictures` is nullptr when no track has pictures. `bytesWritten` is kept current for other threads.
  static Result<std::unique_ptr<MoviePipeline>> create(std::vector<Track> tracks, PacketMailbox* pictures,
                                                       const SessionTimes& session, MovieFile file,
                                                       std::atomic<std::int64_t>& bytesWritten);

  enum class Progress { none, some, ended };

  /// Does what can be done now. `ended` when all tracks are complete and written.
  Result<Progress> step();
  /// Ends the last fragment and makes the file an ordinary one.
  Result<void> finish();
  /// After a failed step: makes what was written an ordinary file as far as that is possible.
  void salvage();

 private:
  MoviePipeline(std::vector<Track> tracks, PacketMailbox* pictures, const SessionTimes& session, MovieFile file,
                std::unique_ptr<FragmentMuxer> muxer, std::atomic<std::int64_t>& bytesWritten);

  PacketSink sinkOf(std::size_t track);
  Result<bool> takePictures();
  Result<bool> encodeSound();
  Result<void> startMissingTracks();
  Result<bool> writeFragments();
  Result<void> writeCut();

  std::vector<Track> tracks_;
  PacketMailbox* pictures_;
  const SessionTimes& session_;
  MovieFile file_;
  std::unique_ptr<FragmentMuxer> muxer_;
  Interleaver interleaver_;
  std::atomic<std::int64_t>& bytesWritten_;
  std::size_t runningTracks_;
  bool picturesEnded_ = false;
  int fragmentsSinceSync_ = 0;
};

}  // namespace quillbeam
