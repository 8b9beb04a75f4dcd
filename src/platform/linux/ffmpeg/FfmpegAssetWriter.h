#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <vector>

#include "base/Completion.h"
#include "base/Mutex.h"
#include "platform/linux/ffmpeg/MovieFile.h"
#include "platform/linux/ffmpeg/MoviePipeline.h"
#include "platform/linux/ffmpeg/VideoPipeline.h"
#include "platform/linux/ffmpeg/WorkerThread.h"
#include "platform/media/AssetWriter.h"

namespace quillbeam {

class FfmpegAssetWriterInput;

/// The asset writer on top of the FFmpeg libraries. At most one track of pictures, any number of sound tracks.
///
///     inputs' queues ─ pictures ─► video thread (VideoPipeline) ─ coded pictures ─┐
///                    └ sound ─────────────────────────────────────────────────────┴► writing thread (MoviePipeline) ─►
///                    file
///
/// Made, fed with inputs, started, finished, cancelled and destroyed by one caller at a time; `status`, `error` and
/// `bytesWritten` on any thread.
class FfmpegAssetWriter final : public AssetWriter {
 public:
  FfmpegAssetWriter(Path path, MovieFile::Limits limits);
  ~FfmpegAssetWriter() override;

  AssetWriterInput* addVideoInput(const VideoSettings& settings) override;
  AssetWriterInput* addAudioInput(const AudioSettings& settings) override;
  bool startWriting() override;
  void startSession(MediaTime sourceTime) override;
  void endSession(MediaTime sourceTime) override;
  Task<void> finishWriting() override;
  void cancelWriting() override;
  Status status() const override;
  std::optional<Error> error() const override;
  std::int64_t bytesWritten() const override { return bytesWritten_; }

 private:
  Result<void> open();
  void beginFinishing(Completion<void> done);
  WorkerThread::Outcome writeStep();
  void end(Status status, std::optional<Error> error);
  void stopThreads();

  const Path path_;
  const MovieFile::Limits limits_;
  SessionTimes session_;
  std::atomic<std::int64_t> bytesWritten_ = 0;

  mutable Mutex mutex_;
  Status status_ GUARDED_BY(mutex_) = Status::unknown;
  std::optional<Error> error_ GUARDED_BY(mutex_);
  std::optional<Completion<void>> finisher_ GUARDED_BY(mutex_);

  // The threads' signals outlive the queues that raise them; the threads are stopped before anything goes.
  WorkerThread videoThread_;
  WorkerThread writingThread_;
  std::atomic<bool> finishing_ = false;
  std::vector<std::unique_ptr<FfmpegAssetWriterInput>> inputs_;
  std::unique_ptr<PacketMailbox> codedPictures_;
  std::unique_ptr<VideoPipeline> videoPipeline_;  ///< the video thread's
  std::unique_ptr<MoviePipeline> moviePipeline_;  ///< the writing thread's
};

}  // namespace quillbeam
