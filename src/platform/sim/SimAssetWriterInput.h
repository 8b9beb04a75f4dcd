#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "platform/sim/SimMediaWriters.h"

namespace quillbeam {

/// The inputs of a simulated writer: they check samples as a real one does and keep them in the movie's tracks.
class SimAssetWriterInputs {
 public:
  /// Called with each sample that was taken over.
  using Appended = std::function<void(const SimMovieTrack& track, const SampleBuffer& sample)>;

  explicit SimAssetWriterInputs(SimMovie& movie, Appended appended = {});
  ~SimAssetWriterInputs();

  /// nullptr for settings that make no sense, a second track of pictures, and once the writer is started.
  AssetWriterInput* addVideo(const VideoSettings& settings);
  AssetWriterInput* addAudio(const AudioSettings& settings);
  bool empty() const { return inputs_.empty(); }
  void finishAll();

 private:
  class Input;
  AssetWriterInput* add(SimMovieTrack track);

  SimMovie& movie_;
  const Appended appended_;
  std::vector<std::unique_ptr<Input>> inputs_;
};

}  // namespace quillbeam
