#include "platform/linux/ffmpeg/FfmpegAssetWriter.h"

#include <utility>

#include "platform/linux/ffmpeg/MovieOutput.h"

namespace quillbeam {

FfmpegAssetWriter::FfmpegAssetWriter(Path path, MovieFileType type, MovieFile::Limits limits)
    : path_(std::move(path)),
      type_(type),
      limits_(limits),
      engine_([this](const auto& tracks) { return open(tracks); }) {}

Result<WritingPipeline::Outputs> FfmpegAssetWriter::open(const std::vector<TrackFormat>& tracks) {
  TRY(auto movie, MovieOutput::create(tracks, path_, type_, limits_, bytesWritten_));
  WritingPipeline::Outputs outputs;
  outputs.push_back(std::move(movie));
  return outputs;
}

}  // namespace quillbeam
