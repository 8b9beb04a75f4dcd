#include "platform/linux/ffmpeg/PeakLimiter.h"

#include <algorithm>
#include <cmath>

namespace quillbeam {

namespace {

/// Per frame: 63 % of the way back in 100 ms.
constexpr float release = 1.0F / 4800;
/// From here on the gain is taken for 1: a hundredth of a decibel.
constexpr float almostOne = 0.999F;

float peakOf(std::span<const float> samples) {
  float peak = 0;
  for (const float sample : samples) peak = std::max(peak, std::abs(sample));
  return peak;
}

}  // namespace

void PeakLimiter::process(std::span<float> block) {
  scratch_.assign(delayed_.begin(), delayed_.end());
  scratch_.insert(scratch_.end(), block.begin(), block.end());
  if (!isIdle() || peakOf(block) > ceiling) {
    for (std::size_t i = 0; i < block.size(); i += 2) {
      const float gain = nextGain(std::max(std::abs(block[i]), std::abs(block[i + 1])));
      scratch_[i] *= gain;
      scratch_[i + 1] *= gain;
    }
  }
  std::copy_n(scratch_.begin(), block.size(), block.begin());
  std::copy(scratch_.end() - std::ssize(delayed_), scratch_.end(), delayed_.begin());
}

float PeakLimiter::nextGain(float peak) {
  const float needed = peak > ceiling ? ceiling / peak : 1;
  while (!needed_.empty() && needed_.back().gain >= needed) needed_.pop_back();
  needed_.push_back({position_, needed});
  if (needed_.front().position < position_ - lookAhead) needed_.pop_front();

  gain_ = std::min(needed_.front().gain, gain_ + (1 - gain_) * release);
  if (gain_ > almostOne && needed_.front().gain == 1) gain_ = 1;
  float& oldest = released_[static_cast<std::size_t>(position_ % std::ssize(released_))];
  sum_ += gain_ - oldest;
  oldest = gain_;
  ++position_;
  framesAtRest_ = gain_ < 1 ? 0 : framesAtRest_ + 1;
  return static_cast<float>(std::min(sum_ / static_cast<double>(released_.size()), 1.0));
}

}  // namespace quillbeam
