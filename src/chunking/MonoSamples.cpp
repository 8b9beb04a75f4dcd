#include "chunking/MonoSamples.h"

#include <algorithm>
#include <cmath>

#include "chunking/MixTimeline.h"

namespace quillbeam {

std::vector<float> monoSamples(const AudioBlock& block) {
  const auto channels = static_cast<std::size_t>(std::max(block.channels, 0));
  if (channels == 1) return block.samples;
  std::vector<float> mono(static_cast<std::size_t>(block.frames()));
  for (std::size_t frame = 0; frame < mono.size(); ++frame) {
    float sum = 0;
    for (std::size_t channel = 0; channel < channels; ++channel) sum += block.samples[frame * channels + channel];
    mono[frame] = sum / static_cast<float>(channels);
  }
  return mono;
}

std::vector<float> resampledTo48k(std::vector<float> samples, double rate) {
  if (samples.empty() || rate <= 0 || std::abs(rate - mixSampleRate) <= 1.0) return samples;
  const double count = static_cast<double>(samples.size());
  std::vector<float> resampled(static_cast<std::size_t>(std::max(1LL, std::llround(count * mixSampleRate / rate))));
  for (std::size_t at = 0; at < resampled.size(); ++at) {
    const double position = static_cast<double>(at) * rate / mixSampleRate;
    const auto before = std::min(static_cast<std::size_t>(position), samples.size() - 1);
    const auto after = std::min(before + 1, samples.size() - 1);
    const auto fraction = static_cast<float>(position - std::floor(position));
    resampled[at] = samples[before] + (samples[after] - samples[before]) * fraction;
  }
  return resampled;
}

std::optional<std::vector<float>> mixSamples(const SampleBuffer& sample) {
  if (!sample.block() || sample.block()->channels < 1) return std::nullopt;
  return resampledTo48k(monoSamples(*sample.block()), sample.block()->sampleRate);
}

}  // namespace quillbeam
