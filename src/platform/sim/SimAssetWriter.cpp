#include "platform/sim/SimAssetWriter.h"

#include <utility>

#include "platform/sim/SimMovieFile.h"

namespace quillbeam {

using namespace simMovieFile;

SimAssetWriter::SimAssetWriter(SimMediaWriters& world, std::shared_ptr<SimMovie> movie)
    : world_(world), movie_(std::move(movie)), inputs_(*movie_) {}

SimAssetWriter::~SimAssetWriter() = default;

AssetWriterInput* SimAssetWriter::addVideoInput(const VideoSettings& settings) {
  return world_.refusesInputs_ ? nullptr : inputs_.addVideo(settings);
}

AssetWriterInput* SimAssetWriter::addAudioInput(const AudioSettings& settings) {
  return world_.refusesInputs_ ? nullptr : inputs_.addAudio(settings);
}

bool SimAssetWriter::startWriting() {
  if (movie_->status != Status::unknown) return false;
  if (auto refusal = world_.takeStartRefusal()) return fail(*std::move(refusal));
  if (inputs_.empty()) return fail(AssetWriterError::cannotEncode);
  if (auto begun = beginFile(world_.files_, *movie_); !begun) return fail(begun.error());
  movie_->status = Status::writing;
  return true;
}

void SimAssetWriter::startSession(MediaTime sourceTime) {
  if (!movie_->sessionStart) movie_->sessionStart = sourceTime;
}

Task<void> SimAssetWriter::finishWriting() {
  inputs_.finishAll();
  if (world_.finishingTime_ > Duration(0)) CO_TRY_VOID(co_await delay(world_.dispatch_.main(), world_.finishingTime_));
  if (movie_->status == Status::failed) co_return *movie_->error;
  if (movie_->status == Status::completed) co_return success;
  if (movie_->status != Status::writing) co_return CommonError::cancelled;
  if (auto ended = finishFile(world_.files_, *movie_); !ended) {
    fail(ended.error());
    co_return ended;
  }
  movie_->status = Status::completed;
  co_return success;
}

void SimAssetWriter::cancelWriting() {
  if (movie_->status != Status::writing) return;
  (void)world_.files_.remove(movie_->path);
  movie_->status = Status::cancelled;
}

std::int64_t SimAssetWriter::bytesWritten() const { return sizeOf(world_.files_, *movie_); }

bool SimAssetWriter::fail(Error error) {
  movie_->error = std::move(error);
  movie_->status = Status::failed;
  return false;
}

}  // namespace quillbeam
