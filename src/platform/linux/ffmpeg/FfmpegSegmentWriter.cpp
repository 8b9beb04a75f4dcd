#include "platform/linux/ffmpeg/FfmpegSegmentWriter.h"

#include <utility>

#include "platform/linux/ffmpeg/MovieOutput.h"
#include "platform/linux/ffmpeg/SegmentOutput.h"

namespace quillbeam {

FfmpegSegmentWriter::FfmpegSegmentWriter(SegmentWriterOptions options, MovieFile::Limits limits)
    : options_(std::move(options)),
      limits_(limits),
      engine_([this](const auto& tracks) { return open(tracks); }, options_.segmentInterval) {}

AssetWriterInput* FfmpegSegmentWriter::addVideoInput(const VideoSettings& settings) {
  // A reordered picture would be decoded in one segment and shown in another.
  return settings.allowFrameReordering ? nullptr : engine_.addVideoInput(settings);
}

Result<WritingPipeline::Outputs> FfmpegSegmentWriter::open(const std::vector<TrackFormat>& tracks) {
  TRY(auto segments, SegmentOutput::create(tracks, options_.segmentInterval, options_.sink, bytesWritten_));
  WritingPipeline::Outputs outputs;
  // First, so that the last segment does not wait for the movie file to be finished.
  outputs.push_back(std::move(segments));
  if (options_.movieFile) {
    if (auto movie = openMovie(tracks)) outputs.push_back(std::move(movie));
  }
  return outputs;
}

std::unique_ptr<PacketOutput> FfmpegSegmentWriter::openMovie(const std::vector<TrackFormat>& tracks) {
  auto output = MovieOutput::create(tracks, *options_.movieFile, MovieFileType::mpeg4, limits_, movieBytesWritten_);
  MutexLock lock(mutex_);
  if (!output) {
    openingError_ = output.error();
    return nullptr;
  }
  auto movie = std::make_unique<DetachedOutput>(*std::move(output), DetachedOutput::Failures::kept);
  movie_ = movie.get();
  return movie;
}

std::optional<Error> FfmpegSegmentWriter::movieError() const {
  MutexLock lock(mutex_);
  return movie_ != nullptr ? movie_->error() : openingError_;
}

}  // namespace quillbeam
