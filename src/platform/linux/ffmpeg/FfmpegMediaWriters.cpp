#include "platform/linux/ffmpeg/FfmpegMediaWriters.h"

#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/linux/ffmpeg/AvTypes.h"
#include "platform/linux/ffmpeg/FfmpegAssetWriter.h"
#include "platform/linux/ffmpeg/FfmpegSegmentWriter.h"
#include "platform/linux/ffmpeg/MovieRepair.h"

namespace quillbeam {

FfmpegMediaWriters::FfmpegMediaWriters(MovieFile::Limits limits) : limits_(limits) {
  // The libraries' own chatter would end up among our standard error lines; failures reach us as codes.
  av_log_set_level(AV_LOG_QUIET);
}

Result<std::unique_ptr<AssetWriter>> FfmpegMediaWriters::makeMovieWriter(const Path& path, MovieFileType type,
                                                                         NetworkUse) {
  // Every file of ours is finished with its index in front, which is all that network use asks for.
  if (::access(path.c_str(), F_OK) == 0) return AssetWriterError::fileExists;
  const std::string directory(parentDirectory(path));
  if (::access(directory.c_str(), W_OK | X_OK) != 0) {
    return Error(AssetWriterError::cannotOpenFile).withUnderlying(systemError("Opening " + path, errno));
  }
  return std::unique_ptr<AssetWriter>(std::make_unique<FfmpegAssetWriter>(path, type, limits_));
}

Result<std::unique_ptr<SegmentWriter>> FfmpegMediaWriters::makeSegmentWriter(SegmentWriterOptions options) {
  if (options.segmentInterval <= MediaTime::zero() || !options.sink) return AssetWriterError::cannotEncode;
  return std::unique_ptr<SegmentWriter>(std::make_unique<FfmpegSegmentWriter>(std::move(options), limits_));
}

Result<RepairReport> FfmpegMediaWriters::repair(const Path& path) { return repairMovie(path); }

}  // namespace quillbeam
