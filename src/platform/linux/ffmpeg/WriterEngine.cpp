#include "platform/linux/ffmpeg/WriterEngine.h"

#include <algorithm>
#include <utility>

#include "platform/linux/ffmpeg/FfmpegAssetWriterInput.h"

namespace quillbeam {

namespace {

/// Coded pictures that may wait for a slow disk, two seconds of them.
constexpr std::size_t codedPicturesDeep = 48;

}  // namespace

WriterEngine::WriterEngine(OpenOutputs openOutputs, std::optional<MediaTime> keyFrameInterval)
    : openOutputs_(std::move(openOutputs)), keyFrameInterval_(keyFrameInterval) {}

WriterEngine::~WriterEngine() { stopThreads(); }

AssetWriterInput* WriterEngine::addVideoInput(const VideoSettings& settings) {
  const bool hasVideo =
      std::ranges::any_of(inputs_, [](const auto& input) { return input->videoSettings().has_value(); });
  if (status() != Status::unknown || hasVideo || !VideoEncoder::create(settings)) return nullptr;
  inputs_.push_back(std::make_unique<FfmpegAssetWriterInput>(*this, session_, settings, videoThread_.signal()));
  return inputs_.back().get();
}

AssetWriterInput* WriterEngine::addAudioInput(const AudioSettings& settings) {
  if (status() != Status::unknown || !AudioEncoder::create(settings)) return nullptr;
  inputs_.push_back(std::make_unique<FfmpegAssetWriterInput>(*this, session_, settings, writingThread_.signal()));
  return inputs_.back().get();
}

bool WriterEngine::startWriting() {
  if (status() != Status::unknown) return false;
  if (auto opened = open(); !opened) {
    end(Status::failed, opened.error());
    return false;
  }
  {
    MutexLock lock(mutex_);
    status_ = Status::writing;
  }
  writingThread_.start("media-writer", [this] { return writeStep(); });
  if (videoPipeline_) videoThread_.start("video-encoder", [this] { return videoPipeline_->step(); });
  return true;
}

Result<void> WriterEngine::open() {
  if (inputs_.empty()) return AssetWriterError::cannotEncode;
  std::vector<WritingPipeline::Track> tracks;
  std::vector<TrackFormat> formats;
  for (const auto& input : inputs_) {
    if (input->videoSettings()) {
      TRY(auto encoder, VideoEncoder::create(*input->videoSettings()));
      codedPictures_ =
          std::make_unique<PacketMailbox>(codedPicturesDeep, videoThread_.signal(), writingThread_.signal());
      tracks.push_back({encoder->format(), nullptr});
      videoPipeline_ = std::make_unique<VideoPipeline>(std::move(encoder), input->queue(), session_, *codedPictures_,
                                                       keyFrameInterval_);
    } else {
      TRY(auto encoder, AudioEncoder::create(*input->audioSettings()));
      TrackFormat format = encoder->format();
      tracks.push_back({format, std::make_unique<AudioTrackFeed>(std::move(encoder), input->queue(), session_)});
    }
    formats.push_back(tracks.back().format);
  }
  TRY(auto outputs, openOutputs_(formats));
  writingPipeline_ =
      std::make_unique<WritingPipeline>(std::move(tracks), codedPictures_.get(), session_, std::move(outputs));
  return success;
}

WorkerThread::Outcome WriterEngine::writeStep() {
  using Outcome = WorkerThread::Outcome;
  // Looked at before the step: a finish asked for meanwhile raises the signal and brings us back.
  const bool finishing = finishing_;
  auto progress = writingPipeline_->step();
  if (!progress) {
    writingPipeline_->salvage();
    end(Status::failed, std::move(progress).error());
    return Outcome::finished;
  }
  if (*progress != WritingPipeline::Progress::ended || !finishing) {
    return *progress == WritingPipeline::Progress::some ? Outcome::worked : Outcome::idle;
  }
  auto finished = writingPipeline_->finish();
  finished ? end(Status::completed, std::nullopt) : end(Status::failed, std::move(finished).error());
  return Outcome::finished;
}

void WriterEngine::end(Status status, std::optional<Error> error) {
  for (const auto& input : inputs_) input->markAsFinished();
  std::optional<Completion<void>> finisher;
  {
    MutexLock lock(mutex_);
    status_ = status;
    error_ = error;
    finisher = std::exchange(finisher_, std::nullopt);
  }
  if (finisher) (*finisher)(error ? Result<void>(*error) : success);
}

Task<void> WriterEngine::finishWriting() {
  co_return co_await completed<void>([this](Completion<void> done) { beginFinishing(std::move(done)); });
}

void WriterEngine::beginFinishing(Completion<void> done) {
  for (const auto& input : inputs_) input->markAsFinished();
  std::optional<Result<void>> outcome;
  {
    MutexLock lock(mutex_);
    switch (status_) {
      case Status::writing:
        finisher_ = std::move(done);
        break;
      case Status::completed:
        outcome = success;
        break;
      case Status::failed:
        outcome = *error_;
        break;
      case Status::unknown:
      case Status::cancelled:
        outcome = CommonError::cancelled;
        break;
    }
  }
  if (outcome) return done(*outcome);
  finishing_ = true;
  writingThread_.signal().raise();
}

void WriterEngine::cancelWriting() {
  stopThreads();
  if (status() != Status::writing) return;
  writingPipeline_->discard();
  end(Status::cancelled, std::nullopt);
}

void WriterEngine::stopThreads() {
  videoThread_.stop();
  writingThread_.stop();
}

WriterEngine::Status WriterEngine::status() const {
  MutexLock lock(mutex_);
  return status_;
}

std::optional<Error> WriterEngine::error() const {
  MutexLock lock(mutex_);
  return error_;
}

}  // namespace quillbeam
