#include "platform/linux/ffmpeg/MixedSoundFile.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <functional>
#include <string>
#include <utility>

namespace quillbeam {

namespace {

/// About ten seconds: nobody plays the file before it is finished, and longer ones cost memory.
constexpr int packetsPerFragment = 469;

/// The same for each mix into `output`, so that the next one removes what a dead one left; short whatever the name is.
Path temporaryPathOf(const Path& output) {
  const std::size_t mark = std::hash<std::string_view>()(fileName(output));
  return joined(Path(parentDirectory(output)), ".mix-" + std::to_string(mark) + ".tmp");
}

/// Four bytes per packet and a few per fragment, headers, and a tenth for an index that promised too little.
std::uint64_t roomForIndex(const TrackFormat& track, MediaTime length) {
  constexpr std::uint64_t headers = 8 * 1024;
  const std::int64_t ticks = length.rescaled(track.timescale).value();
  const auto packets = static_cast<std::uint64_t>(ticks / track.parameters->frame_size + 1);
  return headers + (4 * packets + 24 * (packets / packetsPerFragment)) * 11 / 10;
}

}  // namespace

Result<std::unique_ptr<MixedSoundFile>> MixedSoundFile::create(const Path& output, const TrackFormat& track,
                                                               MediaTime expectedLength) {
  auto muxer = FragmentMuxer::create({track});
  if (!muxer) return Error(AssetWriterError::cannotEncode).withUnderlying(muxer.error());
  const Path temporary = temporaryPathOf(output);
  ::unlink(temporary.c_str());
  // The room fits, so there is nothing that a copy could save.
  const MovieFile::Limits limits{.indexRoom = roomForIndex(track, expectedLength), .largestCopy = 0};
  TRY(MovieFile file, MovieFile::create(temporary, MovieFileType::appleM4A, limits));
  return std::unique_ptr<MixedSoundFile>(new MixedSoundFile(output, temporary, std::move(file), *std::move(muxer)));
}

MixedSoundFile::~MixedSoundFile() {
  if (!isPublished_) ::unlink(temporary_.c_str());
}

Result<void> MixedSoundFile::append(EncodedPacket packet) {
  TRY_VOID(muxer_->write(0, packet));
  return ++packetsInFragment_ < packetsPerFragment ? Result<void>(success) : writeFragment();
}

Result<void> MixedSoundFile::writeFragment() {
  packetsInFragment_ = 0;
  TRY(const MuxedFragment fragment, muxer_->cut());
  if (!fragment.initialization.empty()) TRY_VOID(file_.begin(fragment.initialization));
  return fragment.media.empty() ? Result<void>(success) : file_.append(fragment.media);
}

Result<void> MixedSoundFile::publish(MediaTime end) {
  TRY_VOID(writeFragment());
  TRY_VOID(file_.finish(end));
  if (std::rename(temporary_.c_str(), output_.c_str()) < 0) {
    return Error(AssetWriterError::writeFailed).withUnderlying(systemError("Replacing " + output_, errno));
  }
  isPublished_ = true;
  syncDirectoryOf(output_);
  return success;
}

}  // namespace quillbeam
