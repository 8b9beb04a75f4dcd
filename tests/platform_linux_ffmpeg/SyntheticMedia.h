#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <numbers>
#include <vector>

#include "platform/media/SampleBuffer.h"

namespace quillbeam::test {

/// A picture in memory, painted by the test in Y, U and V.
class TestPicture final : public PixelBuffer {
 public:
  TestPicture(int width, int height)
      : width_(width), height_(height), y_(width * height, 128), u_(width * height / 4, 128), v_(u_) {}

  int width() const override { return width_; }
  int height() const override { return height_; }
  Plane y() const override { return {y_.data(), width_}; }
  Plane u() const override { return {u_.data(), width_ / 2}; }
  Plane v() const override { return {v_.data(), width_ / 2}; }

  /// Fills a rectangle (even numbers) with an sRGB colour, converted by the BT.601 matrix to limited range.
  void fill(int left, int top, int width, int height, std::array<int, 3> rgb) {
    const auto [red, green, blue] = rgb;
    const auto luma =
        static_cast<std::uint8_t>(std::lround(16 + (65.481 * red + 128.553 * green + 24.966 * blue) / 255));
    const auto cb = static_cast<std::uint8_t>(std::lround(128 + (-37.797 * red - 74.203 * green + 112.0 * blue) / 255));
    const auto cr = static_cast<std::uint8_t>(std::lround(128 + (112.0 * red - 93.786 * green - 18.214 * blue) / 255));
    for (int row = top; row < top + height; ++row) {
      for (int column = left; column < left + width; ++column) {
        y_[row * width_ + column] = luma;
        u_[row / 2 * (width_ / 2) + column / 2] = cb;
        v_[row / 2 * (width_ / 2) + column / 2] = cr;
      }
    }
  }

 private:
  int width_;
  int height_;
  std::vector<std::uint8_t> y_;
  std::vector<std::uint8_t> u_;
  std::vector<std::uint8_t> v_;
};

/// A window that moves over a desktop with some text-like texture; another one for each `step`.
inline std::shared_ptr<const PixelBuffer> movingPicture(int width, int height, int step) {
  auto picture = std::make_shared<TestPicture>(width, height);
  for (int row = 0; row < height; row += 8) {
    for (int column = 0; column < width; column += 16) {
      const int shade = 40 + (row * 7 + column * 3) % 160;
      picture->fill(column, row, std::min(16, width - column), std::min(8, height - row), {shade, shade, 200});
    }
  }
  const int side = height / 4 / 2 * 2;
  picture->fill(step * 6 % (width - side) / 2 * 2, height / 3 / 2 * 2, side, side, {220, 40, 40});
  return picture;
}

/// A picture of one brightness, for telling pictures apart after decoding.
inline std::shared_ptr<const PixelBuffer> grayPicture(int width, int height, int shade) {
  auto picture = std::make_shared<TestPicture>(width, height);
  picture->fill(0, 0, width, height, {shade, shade, shade});
  return picture;
}

inline SampleBuffer pictureAt(std::shared_ptr<const PixelBuffer> picture, MediaTime time,
                              MediaTime duration = MediaTime::invalid()) {
  return SampleBuffer::video(std::move(picture), {duration, time, MediaTime::invalid()}, FrameStatus::complete);
}

/// Sound with one single loud sample at `click` (counted from `first`, none when it lies outside) over silence.
inline SampleBuffer soundAt(std::int64_t first, int frames, std::int64_t click) {
  auto block = std::make_shared<AudioBlock>();
  block->samples.resize(static_cast<std::size_t>(frames) * 2);
  for (int channel = 0; channel < 2 && click >= first && click < first + frames; ++channel) {
    block->samples[(click - first) * 2 + channel] = 0.9f;
  }
  return SampleBuffer::audio(std::move(block), MediaTime(first, 48'000));
}

inline SampleBuffer toneAt(std::int64_t first, int frames, double frequency = 440, int rate = 48'000,
                           int channels = 2) {
  auto block = std::make_shared<AudioBlock>();
  block->sampleRate = rate;
  block->channels = channels;
  for (int i = 0; i < frames; ++i) {
    const double phase = 2 * std::numbers::pi * frequency * static_cast<double>(first + i) / rate;
    for (int channel = 0; channel < channels; ++channel) {
      block->samples.push_back(static_cast<float>(0.3 * std::sin(phase)));
    }
  }
  return SampleBuffer::audio(std::move(block), MediaTime(first, rate));
}

/// Where the loudest sample lies.
inline std::int64_t loudest(const std::vector<float>& samples) {
  std::size_t best = 0;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    if (std::abs(samples[i]) > std::abs(samples[best])) best = i;
  }
  return static_cast<std::int64_t>(best);
}

}  // namespace quillbeam::test
