#include "platform/linux/ffmpeg/FfmpegAssetWriter.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

#include "platform/linux/ffmpeg/FfmpegAssetWriterInput.h"

namespace quillbeam {

namespace {

/// Coded pictures that may wait for a slow disk, two seconds of them.
constexpr std::size_t codedPicturesDeep = 48;

}  // namespace

FfmpegAssetWriter::FfmpegAssetWriter(Path path, MovieFile::Limits limits) : path_(std::move(path)), limits_(limits) {}

FfmpegAssetWriter::~FfmpegAssetWriter() { stopThreads(); }

AssetWriterInput* FfmpegAssetWriter::addVideoInput(const VideoSettings& settings) {
  const bool hasVideo =
      std::ranges::any_of(inputs_, [](const auto& input) { return input->videoSettings().has_value(); });
  if (status() != Status::unknown || hasVideo || !VideoEncoder::create(settings)) return nullptr;
  inputs_.push_back(std::make_unique<FfmpegAssetWriterInput>(*this, session_, settings, videoThread_.signal()));
  return inputs_.back().get();
}

AssetWriterInput* FfmpegAssetWriter::addAudioInput(const AudioSettings& settings) {
  if (status() != Status::unknown || !AudioEncoder::create(settings)) return nullptr;
  inputs_.push_back(std::make_unique<FfmpegAssetWriterInput>(*this, session_, settings, writingThread_.signal()));
  return inputs_.back().get();
}

bool FfmpegAssetWriter::startWriting() {
  if (status() != Status::unknown) return false;
  if (auto opened = open(); !opened) {
    end(Status::failed, opened.error());
    return false;
  }
  {
    MutexLock lock(mutex_);
    status_ = Status::writing;
  }
  writingThread_.start("movie-writer", [this] { return writeStep(); });
  if (videoPipeline_) videoThread_.start("video-encoder", [this] { return videoPipeline_->step(); });
  return true;
}

Result<void> FfmpegAssetWriter::open() {
  if (inputs_.empty()) return AssetWriterError::cannotEncode;
  std::vector<MoviePipeline::Track> tracks;
  for (const auto& input : inputs_) {
    if (input->videoSettings()) {
      TRY(auto encoder, VideoEncoder::create(*input->videoSettings()));
      codedPictures_ =
          std::make_unique<PacketMailbox>(codedPicturesDeep, videoThread_.signal(), writingThread_.signal());
      tracks.push_back({encoder->format(), nullptr});
      videoPipeline_ = std::make_unique<VideoPipeline>(std::move(encoder), input->queue(), session_, *codedPictures_);
    } else {
      TRY(auto encoder, AudioEncoder::create(*input->audioSettings()));
      TrackFormat format = encoder->format();
      tracks.push_back({format, std::make_unique<AudioTrackFeed>(std::move(encoder), input->queue(), session_)});
    }
  }
  TRY(MovieFile file, MovieFile::create(path_, limits_));
  auto pipeline =
      MoviePipeline::create(std::move(tracks), codedPictures_.get(), session_, std::move(file), bytesWritten_);
  if (!pipeline) {
    ::unlink(path_.c_str());
    return pipeline.error();
  }
  moviePipeline_ = *std::move(pipeline);
  return success;
}

void FfmpegAssetWriter::startSession(MediaTime sourceTime) { session_.start(sourceTime); }
void FfmpegAssetWriter::endSession(MediaTime sourceTime) { session_.end(sourceTime); }

WorkerThread::Outcome FfmpegAssetWriter::writeStep() {
  using Outcome = WorkerThread::Outcome;
  // Looked at before the step: a finish asked for meanwhile raises the signal and brings us back.
  const bool finishing = finishing_;
  auto progress = moviePipeline_->step();
  if (!progress) {
    moviePipeline_->salvage();
    end(Status::failed, std::move(progress).error());
    return Outcome::finished;
  }
  if (*progress != MoviePipeline::Progress::ended || !finishing) {
    return *progress == MoviePipeline::Progress::some ? Outcome::worked : Outcome::idle;
  }
  auto finished = moviePipeline_->finish();
  finished ? end(Status::completed, std::nullopt) : end(Status::failed, std::move(finished).error());
  return Outcome::finished;
}

void FfmpegAssetWriter::end(Status status, std::optional<Error> error) {
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

Task<void> FfmpegAssetWriter::finishWriting() {
  co_return co_await completed<void>([this](Completion<void> done) { beginFinishing(std::move(done)); });
}

void FfmpegAssetWriter::beginFinishing(Completion<void> done) {
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

void FfmpegAssetWriter::cancelWriting() {
  stopThreads();
  if (status() != Status::writing) return;
  ::unlink(path_.c_str());
  end(Status::cancelled, std::nullopt);
}

void FfmpegAssetWriter::stopThreads() {
  videoThread_.stop();
  writingThread_.stop();
}

AssetWriter::Status FfmpegAssetWriter::status() const {
  MutexLock lock(mutex_);
  return status_;
}

std::optional<Error> FfmpegAssetWriter::error() const {
  MutexLock lock(mutex_);
  return error_;
}

}  // namespace quillbeam
