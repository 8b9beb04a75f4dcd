#include "platform/linux/ffmpeg/FfmpegAudioExport.h"

#include <utility>

#include "base/Check.h"

namespace quillbeam {

FfmpegAudioExport::~FfmpegAudioExport() {
  thread_.stop();
  mixdown_.reset();
  if (status() == Status::exporting) end(Status::cancelled, CommonError::cancelled);
}

Task<void> FfmpegAudioExport::run() {
  co_return co_await completed<void>([this](Completion<void> done) { start(std::move(done)); });
}

void FfmpegAudioExport::start(Completion<void> done) {
  {
    MutexLock lock(mutex_);
    QB_CHECK(status_ == Status::unknown);
    status_ = Status::exporting;
    done_ = std::move(done);
  }
  thread_.start("audio-mixer", [this] { return step(); });
}

WorkerThread::Outcome FfmpegAudioExport::step() {
  if (cancelled_) {
    mixdown_.reset();
    return end(Status::cancelled, CommonError::cancelled);
  }
  auto mixed = mix();
  if (mixed && *mixed == AudioMixdown::Progress::some) {
    progress_ = mixdown_->progress();
    return WorkerThread::Outcome::worked;
  }
  mixdown_.reset();
  if (!mixed) return end(Status::failed, std::move(mixed).error());
  progress_ = 1;
  return end(Status::completed, success);
}

Result<AudioMixdown::Progress> FfmpegAudioExport::mix() {
  if (mixdown_) return mixdown_->step();
  TRY(mixdown_, AudioMixdown::create(mix_));
  return AudioMixdown::Progress::some;
}

WorkerThread::Outcome FfmpegAudioExport::end(Status status, Result<void> outcome) {
  std::optional<Completion<void>> done;
  {
    MutexLock lock(mutex_);
    status_ = status;
    if (status == Status::failed) error_ = outcome.error();
    done = std::exchange(done_, std::nullopt);
  }
  if (done) (*done)(std::move(outcome));
  return WorkerThread::Outcome::finished;
}

AudioExport::Status FfmpegAudioExport::status() const {
  MutexLock lock(mutex_);
  return status_;
}

std::optional<Error> FfmpegAudioExport::error() const {
  MutexLock lock(mutex_);
  return error_;
}

}  // namespace quillbeam
