#pragma once

#include <vector>

#include "platform/media/SampleBuffer.h"

namespace quillbeam {

/// The block's channels averaged into one; empty for a block without channels.
std::vector<float> monoSamples(const AudioBlock& block);

/// Resampled linearly from `rate`; unchanged when the rates differ by no more than 1 Hz or there is nothing to
/// resample.
std::vector<float> resampledTo48k(std::vector<float> samples, double rate);

}  // namespace quillbeam
