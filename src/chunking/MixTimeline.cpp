#include "chunking/MixTimeline.h"

namespace quillbeam {

namespace {

using Wide = __int128;

constexpr Wide nanosecondsPerSecond = 1'000'000'000;

/// frames = `numerator` / `denominator`, exactly.
struct Distance {
  Wide numerator;
  Wide denominator;
};

Distance exactFrames(MediaTime from, MediaTime to) {
  const Wide ticks =
      static_cast<Wide>(to.value()) * from.timescale() - static_cast<Wide>(from.value()) * to.timescale();
  return {ticks * mixSampleRate, static_cast<Wide>(from.timescale()) * to.timescale()};
}

}  // namespace

std::int64_t nearestFrames(MediaTime from, MediaTime to) {
  const auto [frames, scale] = exactFrames(from, to);
  return static_cast<std::int64_t>((frames + (frames < 0 ? -scale : scale) / 2) / scale);
}

std::int64_t wholeFrames(MediaTime from, MediaTime to) {
  const auto [frames, scale] = exactFrames(from, to);
  const Wide nanosecond = scale * mixSampleRate / nanosecondsPerSecond;
  return static_cast<std::int64_t>((frames + (frames < 0 ? -nanosecond : nanosecond)) / scale);
}

}  // namespace quillbeam
