#pragma once

#include <atomic>

#include "platform/linux/ffmpeg/MovieFile.h"
#include "platform/linux/ffmpeg/WriterEngine.h"

namespace quillbeam {

/// The writer of a movie file on top of the FFmpeg libraries.
class FfmpegAssetWriter final : public AssetWriter {
 public:
  FfmpegAssetWriter(Path path, MovieFileType type, MovieFile::Limits limits);

  AssetWriterInput* addVideoInput(const VideoSettings& settings) override { return engine_.addVideoInput(settings); }
  AssetWriterInput* addAudioInput(const AudioSettings& settings) override { return engine_.addAudioInput(settings); }
  bool startWriting() override { return engine_.startWriting(); }
  void startSession(MediaTime sourceTime) override { engine_.startSession(sourceTime); }
  void endSession(MediaTime sourceTime) override { engine_.endSession(sourceTime); }
  Task<void> finishWriting() override { return engine_.finishWriting(); }
  void cancelWriting() override { engine_.cancelWriting(); }
  Status status() const override { return engine_.status(); }
  std::optional<Error> error() const override { return engine_.error(); }
  std::int64_t bytesWritten() const override { return bytesWritten_; }

 private:
  Result<WritingPipeline::Outputs> open(const std::vector<TrackFormat>& tracks);

  const Path path_;
  const MovieFileType type_;
  const MovieFile::Limits limits_;
  std::atomic<std::int64_t> bytesWritten_ = 0;
  WriterEngine engine_;
};

}  // namespace quillbeam
