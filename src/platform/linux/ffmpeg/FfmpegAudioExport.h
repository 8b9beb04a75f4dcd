#pragma once

#include <atomic>
#include <memory>
#include <optional>

#include "base/Completion.h"
#include "base/Mutex.h"
#include "platform/linux/ffmpeg/AudioMixdown.h"
#include "platform/linux/ffmpeg/WorkerThread.h"
#include "platform/media/AudioExporter.h"

namespace quillbeam {

/// One export and its thread.
class FfmpegAudioExport final : public AudioExport {
 public:
  explicit FfmpegAudioExport(AudioMix mix) : mix_(std::move(mix)) {}
  ~FfmpegAudioExport() override;

  Task<void> run() override;
  void cancel() override { cancelled_ = true; }
  Status status() const override;
  std::optional<Error> error() const override;
  double progress() const override { return progress_; }

 private:
  void start(Completion<void> done);
  WorkerThread::Outcome step();
  Result<AudioMixdown::Progress> mix();
  WorkerThread::Outcome end(Status status, Result<void> outcome);

  const AudioMix mix_;
  std::atomic<bool> cancelled_ = false;
  std::atomic<double> progress_ = 0;

  mutable Mutex mutex_;
  Status status_ GUARDED_BY(mutex_) = Status::unknown;
  std::optional<Error> error_ GUARDED_BY(mutex_);
  std::optional<Completion<void>> done_ GUARDED_BY(mutex_);

  std::unique_ptr<AudioMixdown> mixdown_;  ///< the thread's
  WorkerThread thread_;
};

}  // namespace quillbeam
