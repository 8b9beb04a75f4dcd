#include "platform/sim/SimAssetWriter.h"

#include <utility>

#include "platform/sim/SimMovieFile.h"

namespace quillbeam {

using namespace simMovieFile;

class SimAssetWriter::Input final : public AssetWriterInput {
 public:
  Input(const SimMovie& movie, SimMovieTrack& track) : movie_(movie), track_(track) {}

  bool isReadyForMoreMediaData() const override { return movie_.status == Status::writing && track_.isReady; }
  bool append(const SampleBuffer& sample) override {
    if (movie_.status != Status::writing || !movie_.sessionStart) return false;
    if (track_.isFinished || !track_.acceptsSamples || !fits(sample)) return false;
    const bool rises = track_.samples.empty() || sample.presentationTime() > track_.samples.back().presentationTime();
    if (rises) track_.samples.push_back(sample);
    return rises;
  }
  void markAsFinished() override { track_.isFinished = true; }

 private:
  bool fits(const SampleBuffer& sample) const {
    if (!sample.isValid()) return false;
    if (!track_.video) return sample.block() != nullptr && sample.block()->frames() > 0;
    const auto& picture = sample.picture();
    return picture && picture->width() == track_.video->width && picture->height() == track_.video->height;
  }

  const SimMovie& movie_;
  SimMovieTrack& track_;
};

SimAssetWriter::SimAssetWriter(SimMediaWriters& world, std::shared_ptr<SimMovie> movie)
    : world_(world), movie_(std::move(movie)) {}

SimAssetWriter::~SimAssetWriter() = default;

AssetWriterInput* SimAssetWriter::addVideoInput(const VideoSettings& settings) {
  const bool sane = settings.width > 0 && settings.height > 0 && settings.width % 2 == 0 && settings.height % 2 == 0;
  if (!sane || movie_->pictures() != nullptr) return nullptr;
  return addInput({.video = settings});
}

AssetWriterInput* SimAssetWriter::addAudioInput(const AudioSettings& settings) {
  if (settings.sampleRate <= 0 || settings.channels <= 0) return nullptr;
  return addInput({.audio = settings});
}

AssetWriterInput* SimAssetWriter::addInput(SimMovieTrack track) {
  if (movie_->status != Status::unknown || world_.refusesInputs_) return nullptr;
  movie_->tracks.push_back(std::make_unique<SimMovieTrack>(std::move(track)));
  inputs_.push_back(std::make_unique<Input>(*movie_, *movie_->tracks.back()));
  return inputs_.back().get();
}

bool SimAssetWriter::startWriting() {
  if (movie_->status != Status::unknown) return false;
  if (auto refusal = world_.takeStartRefusal()) return fail(*std::move(refusal));
  if (inputs_.empty()) return fail(AssetWriterError::cannotEncode);
  const auto created = world_.files_.writeNew(movie_->path, content(unfinishedContent), Durability::durable);
  if (!created) return fail(fileError(created.error()));
  movie_->status = Status::writing;
  return true;
}

void SimAssetWriter::startSession(MediaTime sourceTime) {
  if (!movie_->sessionStart) movie_->sessionStart = sourceTime;
}

Task<void> SimAssetWriter::finishWriting() {
  for (const auto& input : inputs_) input->markAsFinished();
  if (world_.finishingTime_ > Duration(0)) CO_TRY_VOID(co_await delay(world_.dispatch_.main(), world_.finishingTime_));
  if (movie_->status == Status::failed) co_return *movie_->error;
  if (movie_->status == Status::completed) co_return success;
  if (movie_->status != Status::writing) co_return CommonError::cancelled;
  const auto written = world_.files_.writeAtomically(movie_->path, content(finishedContent));
  if (!written) fail(Error(AssetWriterError::writeFailed).withUnderlying(written.error()));
  if (!written) co_return *movie_->error;
  movie_->status = Status::completed;
  co_return success;
}

void SimAssetWriter::cancelWriting() {
  if (movie_->status != Status::writing) return;
  (void)world_.files_.remove(movie_->path);
  movie_->status = Status::cancelled;
}

std::int64_t SimAssetWriter::bytesWritten() const {
  const auto info = world_.files_.info(movie_->path);
  return info && movie_->status != Status::unknown ? info->size : 0;
}

bool SimAssetWriter::fail(Error error) {
  movie_->error = std::move(error);
  movie_->status = Status::failed;
  return false;
}

}  // namespace quillbeam
