#include "platform/linux/pulse/FractionalResampler.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <numbers>

namespace quillbeam {

namespace {

constexpr int channels = 2;
constexpr int reach = 16;  ///< frames on either side of a position that its value is made of
constexpr int taps = 2 * reach;
constexpr int phases = 128;
// The band ends a little below half the rate, where the transition of a filter this short begins to matter.
constexpr double cutoff = 0.95;
constexpr double windowShape = 7;  ///< Kaiser beta: images 70 dB down

/// Coefficients stand twice, once per channel, so that the sum runs over interleaved samples in vectors of four.
using Row = std::array<float, taps * channels>;
using Table = std::array<Row, phases + 1>;

double kernel(double distance) {
  const double inside = distance / reach;
  if (std::abs(inside) >= 1) return 0;
  const double window =
      std::cyl_bessel_i(0, windowShape * std::sqrt(1 - inside * inside)) / std::cyl_bessel_i(0, windowShape);
  const double angle = std::numbers::pi * cutoff * distance;
  return window * cutoff * (angle == 0 ? 1 : std::sin(angle) / angle);
}

Table makeTable() {
  Table table;
  for (int phase = 0; phase <= phases; ++phase) {
    std::array<double, taps> row;
    double sum = 0;
    for (int tap = 0; tap < taps; ++tap) {
      row[tap] = kernel(tap - (reach - 1) - static_cast<double>(phase) / phases);
      sum += row[tap];
    }
    for (int sample = 0; sample < taps * channels; ++sample) {
      table[phase][sample] = static_cast<float>(row[sample / channels] / sum);
    }
  }
  return table;
}

const Table& sincTable() {
  static const Table table = makeTable();
  return table;
}

}  // namespace

FractionalResampler::FractionalResampler(double position)
    : buffer_((reach - 1) * channels, 0.0F), position_(position + reach - 1) {}

void FractionalResampler::push(std::span<const float> samples) {
  buffer_.insert(buffer_.end(), samples.begin(), samples.end());
}

void FractionalResampler::pushSilentTail() { buffer_.resize(buffer_.size() + reach * channels, 0.0F); }

double FractionalResampler::framesAhead() const { return static_cast<double>(buffer_.size() / channels) - position_; }

void FractionalResampler::produce(double step, std::vector<float>& output) {
  const double end = static_cast<double>(buffer_.size() / channels) - reach;
  while (position_ < end) {
    output.resize(output.size() + channels);
    interpolate(&output[output.size() - channels]);
    position_ += step;
  }
  forgetBehindPosition();
}

void FractionalResampler::interpolate(float* frame) const {
  const auto whole = static_cast<std::size_t>(position_);
  const double phase = (position_ - static_cast<double>(whole)) * phases;
  const auto row = std::min(static_cast<std::size_t>(phase), static_cast<std::size_t>(phases - 1));
  const auto weight = static_cast<float>(phase - static_cast<double>(row));
  const float* low = sincTable()[row].data();
  const float* high = sincTable()[row + 1].data();
  const float* signal = &buffer_[(whole - (reach - 1)) * channels];
  std::array<float, 4> sums{};
  for (int sample = 0; sample < taps * channels; sample += 4) {
    for (int lane = 0; lane < 4; ++lane) {
      const int at = sample + lane;
      sums[lane] += (low[at] + weight * (high[at] - low[at])) * signal[at];
    }
  }
  frame[0] = sums[0] + sums[2];
  frame[1] = sums[1] + sums[3];
}

void FractionalResampler::forgetBehindPosition() {
  const std::size_t buffered = buffer_.size() / channels;
  const auto behind = static_cast<std::size_t>(std::max(position_ - (reach - 1), 0.0));
  const std::size_t gone = std::min(behind, buffered);
  buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(gone * channels));
  position_ -= static_cast<double>(gone);
}

}  // namespace quillbeam
