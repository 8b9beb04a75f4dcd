#pragma once

#include <memory>
#include <vector>

#include "base/Result.h"
#include "platform/linux/ffmpeg/AvTypes.h"
#include "platform/media/SampleBuffer.h"

namespace quillbeam {

/// Brings interleaved sound to another rate and channel count. Sound of the right format passes untouched. The first
/// sample out belongs to the first sample in. One thread at a time.
class AudioConverter {
 public:
  struct Format {
    int sampleRate = 0;
    int channels = 0;
    friend bool operator==(const Format&, const Format&) = default;
  };

  static Result<std::unique_ptr<AudioConverter>> create(Format from, Format to);

  const Format& source() const { return from_; }
  /// Appends what comes out to `output`; a few samples stay inside until more comes or `flush`.
  Result<void> convert(const float* samples, int frames, std::vector<float>& output);
  Result<void> flush(std::vector<float>& output);
  /// Frames (of the target rate) that are still inside.
  std::int64_t delay() const;

 private:
  AudioConverter(Format from, Format to, AvOwned<SwrContext> resampler)
      : from_(from), to_(to), resampler_(std::move(resampler)) {}

  Format from_;
  Format to_;
  AvOwned<SwrContext> resampler_;  ///< null when there is nothing to convert
};

}  // namespace quillbeam
