#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "platform/linux/ffmpeg/FragmentMuxer.h"
#include "platform/linux/ffmpeg/Interleaver.h"
#include "platform/linux/ffmpeg/MovieFile.h"
#include "platform/linux/ffmpeg/PacketOutput.h"
#include "platform/media/AssetWriter.h"

namespace quillbeam {

/// Writes a movie file: fragments of a second while it grows, an ordinary movie in the end.
class MovieOutput final : public PacketOutput {
 public:
  /// A new file; errors as `MovieFile`, or `AssetWriterError::cannotEncode`. `bytesWritten` is kept current for other
  /// threads.
  static Result<std::unique_ptr<MovieOutput>> create(const std::vector<TrackFormat>& tracks, const Path& path,
                                                     MovieFileType type, MovieFile::Limits limits,
                                                     std::atomic<std::int64_t>& bytesWritten);

  void push(std::size_t track, EncodedPacket packet) override { interleaver_.push(track, std::move(packet)); }
  void endTrack(std::size_t track, std::optional<MediaTime> end) override { interleaver_.endTrack(track, end); }
  void cutTrack(std::size_t track, MediaTime end) override { interleaver_.cutTrack(track, end); }
  Result<bool> write() override;
  Result<void> finish(std::optional<MediaTime> end) override;
  /// What was written before plays.
  void salvage(std::optional<MediaTime> end) override;
  void discard() override;

 private:
  MovieOutput(const std::vector<TrackFormat>& tracks, Path path, MovieFile file, std::unique_ptr<FragmentMuxer> muxer,
              std::atomic<std::int64_t>& bytesWritten);
  Result<void> writeCut();

  const Path path_;
  MovieFile file_;
  std::unique_ptr<FragmentMuxer> muxer_;
  Interleaver interleaver_;
  std::atomic<std::int64_t>& bytesWritten_;
  int fragmentsSinceSync_ = 0;
};

}  // namespace quillbeam
