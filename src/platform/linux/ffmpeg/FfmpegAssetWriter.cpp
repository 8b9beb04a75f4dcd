#include "platform/linux/ffmpeg/FfmpegAssetWriter.h"

#include <utility>

#include "platform/linux/ffmpeg/DetachedOutput.h"
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
  // A disk that hesitates must not hold up the thread that encodes sound.
  outputs.push_back(std::make_unique<DetachedOutput>(std::move(movie), DetachedOutput::Failures::passedOn));
  return outputs;
}

}  // namespace quillbeam
