#pragma once

#include <memory>

#include "platform/sim/SimAssetWriterInput.h"

namespace quillbeam {

/// The writer of a simulated movie; its state is the movie's. One thread.
class SimAssetWriter final : public AssetWriter {
 public:
  SimAssetWriter(SimMediaWriters& world, std::shared_ptr<SimMovie> movie);
  ~SimAssetWriter() override;

  AssetWriterInput* addVideoInput(const VideoSettings& settings) override;
  AssetWriterInput* addAudioInput(const AudioSettings& settings) override;
  bool startWriting() override;
  void startSession(MediaTime sourceTime) override;
  void endSession(MediaTime sourceTime) override { movie_->sessionEnd = sourceTime; }
  Task<void> finishWriting() override;
  void cancelWriting() override;
  Status status() const override { return movie_->status; }
  std::optional<Error> error() const override { return movie_->error; }
  std::int64_t bytesWritten() const override;

 private:
  bool fail(Error error);

  SimMediaWriters& world_;
  std::shared_ptr<SimMovie> movie_;
  SimAssetWriterInputs inputs_;
};

}  // namespace quillbeam
