#pragma once

#include <memory>
#include <vector>

#include "base/Result.h"
#include "platform/linux/ffmpeg/AvTypes.h"
#include "platform/media/AudioExporter.h"

namespace quillbeam {

/// An MPEG-4 file that is read for its sound. Tracks count among the file's audio tracks. One thread at a time.
class SoundFile {
 public:
  /// Reads the index. `AudioExporterError::cannotRead` with the reason.
  static Result<SoundFile> open(const Path& path);

  const std::vector<const AVStream*>& tracks() const { return tracks_; }
  /// Where the track ends on the file's timeline; zero when nothing was ever written to it, or nobody knows.
  MediaTime end(std::size_t track) const;
  AudioTrack describeTrack(std::size_t track) const;

  /// From now on `read` gives the packets of these tracks only.
  void select(const std::vector<std::size_t>& tracks);
  /// The next packet: tracks stay about a second from each other, however they lie in the file. False at the end, which
  /// a file that was cut short reaches early.
  Result<bool> read(AVPacket& packet);

 private:
  struct Closer {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
  };

  explicit SoundFile(AVFormatContext* context);

  std::unique_ptr<AVFormatContext, Closer> context_;
  std::vector<const AVStream*> tracks_;
};

}  // namespace quillbeam
