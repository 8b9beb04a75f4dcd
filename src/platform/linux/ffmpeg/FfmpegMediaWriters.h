#pragma once

#include "platform/linux/ffmpeg/MovieFile.h"
#include "platform/media/SegmentWriter.h"

namespace quillbeam {

/// Makes writers that encode with the FFmpeg libraries (libx264 and AAC). Any thread.
class FfmpegMediaWriters final : public MediaWriters {
 public:
  /// `limits` are for files whose index shall not fit, in tests.
  explicit FfmpegMediaWriters(MovieFile::Limits limits = {});

  Result<std::unique_ptr<AssetWriter>> makeMovieWriter(const Path& path, MovieFileType type, NetworkUse use) override;
  Result<std::unique_ptr<SegmentWriter>> makeSegmentWriter(SegmentWriterOptions options) override;
  Result<RepairReport> repair(const Path& path) override;

 private:
  const MovieFile::Limits limits_;
};

}  // namespace quillbeam
