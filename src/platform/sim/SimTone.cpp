#include "platform/sim/SimTone.h"

#include <cmath>
#include <numbers>
#include <utility>

namespace quillbeam {

SampleBuffer SimTone::nextBlock() {
  constexpr double amplitude = 0.25;
  const auto stamp = nextStart();
  AudioBlock block;
  block.samples.reserve(static_cast<std::size_t>(blockFrames) * static_cast<std::size_t>(block.channels));
  for (int frame = 0; frame < blockFrames; ++frame, ++frames_) {
    const double phase = 2 * std::numbers::pi * frequency_ * static_cast<double>(frames_) / sampleRate;
    block.samples.insert(block.samples.end(), 2, static_cast<float>(amplitude * std::sin(phase)));
  }
  return SampleBuffer::audio(std::make_shared<const AudioBlock>(std::move(block)), stamp);
}

}  // namespace quillbeam
