#pragma once

#include <optional>
#include <vector>

#include "platform/media/SampleBuffer.h"

namespace quillbeam {

/// The block's channels averaged into one; empty for a block without channels.
std::vector<float> monoSamples(const AudioBlock& block);

/// Resampled linearly from `rate`; unchanged when the rates differ by no more than 1 Hz or there is nothing to
/// resample.
std::vector<float> resampledTo48k(std::vector<float> samples, double rate);

/// A sample's sound as the mix takes it: mono at 48 kHz. nullopt when the sample holds no sound.
std::optional<std::vector<float>> mixSamples(const SampleBuffer& sample);

}  // namespace quillbeam
