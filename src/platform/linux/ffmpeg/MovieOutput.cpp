#include "platform/linux/ffmpeg/MovieOutput.h"

#include <unistd.h>

#include <utility>

namespace quillbeam {

namespace {

/// How much of a recording a power cut may take.
constexpr int fragmentsPerSync = 5;

}  // namespace

Result<std::unique_ptr<MovieOutput>> MovieOutput::create(const std::vector<TrackFormat>& tracks, const Path& path,
                                                         MovieFileType type, MovieFile::Limits limits,
                                                         std::atomic<std::int64_t>& bytesWritten) {
  auto muxer = FragmentMuxer::create(tracks);
  if (!muxer) return Error(AssetWriterError::cannotEncode).withUnderlying(muxer.error());
  TRY(MovieFile file, MovieFile::create(path, type, limits));
  bytesWritten = static_cast<std::int64_t>(file.size());
  return std::unique_ptr<MovieOutput>(new MovieOutput(tracks, path, std::move(file), *std::move(muxer), bytesWritten));
}

MovieOutput::MovieOutput(const std::vector<TrackFormat>& tracks, Path path, MovieFile file,
                         std::unique_ptr<FragmentMuxer> muxer, std::atomic<std::int64_t>& bytesWritten)
    : path_(std::move(path)),
      file_(std::move(file)),
      muxer_(std::move(muxer)),
      interleaver_(timescalesOf(tracks)),
      bytesWritten_(bytesWritten) {}

Result<bool> MovieOutput::write() {
  bool any = false;
  while (interleaver_.isFragmentReady()) {
    const auto packets = interleaver_.takeFragment();
    if (packets.empty()) continue;
    for (const auto& [track, packet] : packets) TRY_VOID(muxer_->write(track, packet));
    TRY_VOID(writeCut());
    any = true;
  }
  return any;
}

Result<void> MovieOutput::writeCut() {
  TRY(const MuxedFragment cut, muxer_->cut());
  if (!cut.initialization.empty()) TRY_VOID(file_.begin(cut.initialization));
  if (!cut.media.empty()) TRY_VOID(file_.append(cut.media));
  bytesWritten_ = static_cast<std::int64_t>(file_.size());
  if (++fragmentsSinceSync_ < fragmentsPerSync) return success;
  fragmentsSinceSync_ = 0;
  return file_.sync();
}

Result<void> MovieOutput::finish(std::optional<MediaTime> end) {
  if (!file_.hasBegun()) TRY_VOID(writeCut());
  TRY_VOID(file_.finish(end));
  bytesWritten_ = static_cast<std::int64_t>(file_.size());
  return success;
}

void MovieOutput::salvage(std::optional<MediaTime> end) {
  if (file_.hasBegun()) (void)file_.finish(end);
}

void MovieOutput::discard() {
  ::unlink(path_.c_str());
  bytesWritten_ = 0;
}

}  // namespace quillbeam
