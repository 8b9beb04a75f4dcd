#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "base/Completion.h"
#include "base/Mutex.h"
#include "platform/linux/ffmpeg/VideoPipeline.h"
#include "platform/linux/ffmpeg/WorkerThread.h"
#include "platform/linux/ffmpeg/WritingPipeline.h"
#include "platform/media/AssetWriter.h"

namespace quillbeam {

class FfmpegAssetWriterInput;

/// What all writers on top of the FFmpeg libraries have in common: inputs, encoders, threads and the way from `unknown`
/// to an end; what becomes of the packets is its outputs' business. At most one track of pictures, any number of sound
/// tracks; one encoder each.
///
///     inputs' queues ─ pictures ─► video thread (VideoPipeline) ─ coded pictures ─┐
///                    └ sound ─────────────────────────────────────────────────────┴► writing thread (WritingPipeline)
///                                                                                       └─► outputs
///
/// The functions keep the promises of `AssetWriter`'s of the same name: used by one caller at a time, but for `status`
/// and `error`, which any thread may ask.
class WriterEngine {
 public:
  using Status = AssetWriter::Status;
  /// Makes the outputs once the encoders are open. The last one is to be what costs most to undo.
  using OpenOutputs = std::function<Result<WritingPipeline::Outputs>(const std::vector<TrackFormat>& tracks)>;

  /// A key frame is forced at each multiple of `keyFrameInterval`.
  explicit WriterEngine(OpenOutputs openOutputs, std::optional<MediaTime> keyFrameInterval = std::nullopt);
  /// Stops the threads, leaves the outputs as they are.
  ~WriterEngine();

  AssetWriterInput* addVideoInput(const VideoSettings& settings);
  AssetWriterInput* addAudioInput(const AudioSettings& settings);
  bool startWriting();
  void startSession(MediaTime sourceTime) { session_.start(sourceTime); }
  void endSession(MediaTime sourceTime) { session_.end(sourceTime); }
  Task<void> finishWriting();
  void cancelWriting();
  Status status() const;
  std::optional<Error> error() const;

 private:
  Result<void> open();
  void beginFinishing(Completion<void> done);
  WorkerThread::Outcome writeStep();
  void end(Status status, std::optional<Error> error);
  void stopThreads();

  const OpenOutputs openOutputs_;
  const std::optional<MediaTime> keyFrameInterval_;
  SessionTimes session_;

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
  std::unique_ptr<VideoPipeline> videoPipeline_;      ///< the video thread's
  std::unique_ptr<WritingPipeline> writingPipeline_;  ///< the writing thread's
};

}  // namespace quillbeam
