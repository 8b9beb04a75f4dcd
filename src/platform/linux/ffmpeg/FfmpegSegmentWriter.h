#pragma once

#include <atomic>

#include "base/Mutex.h"
#include "platform/linux/ffmpeg/DetachedOutput.h"
#include "platform/linux/ffmpeg/MovieFile.h"
#include "platform/linux/ffmpeg/WriterEngine.h"
#include "platform/media/SegmentWriter.h"

namespace quillbeam {

/// The writer of segments on top of the FFmpeg libraries. The writing thread cuts and delivers them; the movie file, if
/// there is one, takes the same packets on a thread of its own.
class FfmpegSegmentWriter final : public SegmentWriter {
 public:
  FfmpegSegmentWriter(SegmentWriterOptions options, MovieFile::Limits limits);

  AssetWriterInput* addVideoInput(const VideoSettings& settings) override;
  AssetWriterInput* addAudioInput(const AudioSettings& settings) override { return engine_.addAudioInput(settings); }
  bool startWriting() override { return engine_.startWriting(); }
  void startSession(MediaTime sourceTime) override { engine_.startSession(sourceTime); }
  void endSession(MediaTime sourceTime) override { engine_.endSession(sourceTime); }
  Task<void> finishWriting() override { return engine_.finishWriting(); }
  void cancelWriting() override { engine_.cancelWriting(); }
  Status status() const override { return engine_.status(); }
  std::optional<Error> error() const override { return engine_.error(); }
  std::int64_t bytesWritten() const override { return bytesWritten_; }
  std::optional<Error> movieError() const override;
  std::int64_t movieBytesWritten() const override { return movieBytesWritten_; }

 private:
  Result<WritingPipeline::Outputs> open(const std::vector<TrackFormat>& tracks);
  std::unique_ptr<PacketOutput> openMovie(const std::vector<TrackFormat>& tracks);

  const SegmentWriterOptions options_;
  const MovieFile::Limits limits_;
  std::atomic<std::int64_t> bytesWritten_ = 0;
  std::atomic<std::int64_t> movieBytesWritten_ = 0;
  mutable Mutex mutex_;
  std::optional<Error> openingError_ GUARDED_BY(mutex_);      ///< why there is no movie file
  const DetachedOutput* movie_ GUARDED_BY(mutex_) = nullptr;  ///< the engine's
  WriterEngine engine_;
};

}  // namespace quillbeam
