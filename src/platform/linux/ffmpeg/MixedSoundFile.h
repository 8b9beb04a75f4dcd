#pragma once

#include <memory>

#include "platform/linux/ffmpeg/FragmentMuxer.h"
#include "platform/linux/ffmpeg/MovieFile.h"

namespace quillbeam {

/// One track of coded sound on its way into a file that appears complete, durable and with its index in front, or not
/// at all: it is written under another name in the same directory. Errors are `AssetWriterError`s. One thread at a
/// time.
class MixedSoundFile {
 public:
  /// `expectedLength` decides how much room is kept for the index; when it does not fit, it comes behind the sound.
  static Result<std::unique_ptr<MixedSoundFile>> create(const Path& output, const TrackFormat& track,
                                                        MediaTime expectedLength);
  /// Removes what was not published.
  ~MixedSoundFile();

  Result<void> append(EncodedPacket packet);
  /// Hides what lies behind `end`, makes the file durable and moves it to its place. After the last packet; once.
  Result<void> publish(MediaTime end);

 private:
  MixedSoundFile(Path output, Path temporary, MovieFile file, std::unique_ptr<FragmentMuxer> muxer)
      : output_(std::move(output)),
        temporary_(std::move(temporary)),
        file_(std::move(file)),
        muxer_(std::move(muxer)) {}

  Result<void> writeFragment();

  const Path output_;
  const Path temporary_;
  MovieFile file_;
  std::unique_ptr<FragmentMuxer> muxer_;
  int packetsInFragment_ = 0;
  bool isPublished_ = false;
};

}  // namespace quillbeam
