#include "platform/sim/SimAssetWriterInput.h"

#include <utility>

namespace quillbeam {

using Status = AssetWriter::Status;

class SimAssetWriterInputs::Input final : public AssetWriterInput {
 public:
  Input(const SimMovie& movie, SimMovieTrack& track, const Appended& appended)
      : movie_(movie), track_(track), appended_(appended) {}

  bool isReadyForMoreMediaData() const override {
    return movie_.status == Status::failed || (movie_.status == Status::writing && track_.isReady);
  }
  bool append(const SampleBuffer& sample) override {
    if (movie_.status != Status::writing || !movie_.sessionStart) return false;
    if (track_.isFinished || !track_.acceptsSamples || !fits(sample)) return false;
    const bool rises = track_.samples.empty() || sample.presentationTime() > track_.samples.back().presentationTime();
    if (!rises) return false;
    track_.samples.push_back(sample);
    if (appended_) appended_(track_, sample);
    return true;
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
  const Appended& appended_;
};

SimAssetWriterInputs::SimAssetWriterInputs(SimMovie& movie, Appended appended)
    : movie_(movie), appended_(std::move(appended)) {}

SimAssetWriterInputs::~SimAssetWriterInputs() = default;

AssetWriterInput* SimAssetWriterInputs::addVideo(const VideoSettings& settings) {
  const bool sane = settings.width > 0 && settings.height > 0 && settings.width % 2 == 0 && settings.height % 2 == 0;
  if (!sane || movie_.pictures() != nullptr) return nullptr;
  return add({.video = settings});
}

AssetWriterInput* SimAssetWriterInputs::addAudio(const AudioSettings& settings) {
  if (settings.sampleRate <= 0 || settings.channels <= 0) return nullptr;
  return add({.audio = settings});
}

AssetWriterInput* SimAssetWriterInputs::add(SimMovieTrack track) {
  if (movie_.status != Status::unknown) return nullptr;
  movie_.tracks.push_back(std::make_unique<SimMovieTrack>(std::move(track)));
  inputs_.push_back(std::make_unique<Input>(movie_, *movie_.tracks.back(), appended_));
  return inputs_.back().get();
}

void SimAssetWriterInputs::finishAll() {
  for (const auto& input : inputs_) input->markAsFinished();
}

}  // namespace quillbeam
