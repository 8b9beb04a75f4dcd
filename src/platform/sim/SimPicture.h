#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/media/PixelBuffer.h"

namespace quillbeam {

/// An even grey of any size. All rows are one row in memory (strides are 0), so that hours of pictures cost nothing.
class SimPicture final : public PixelBuffer {
 public:
  SimPicture(int width, int height, std::uint8_t luma)
      : width_(width),
        height_(height),
        luma_(static_cast<std::size_t>(width), luma),
        chroma_(static_cast<std::size_t>(width), 128) {}

  int width() const override { return width_; }
  int height() const override { return height_; }
  Plane y() const override { return {luma_.data(), 0}; }
  Plane u() const override { return {chroma_.data(), 0}; }
  Plane v() const override { return {chroma_.data(), 0}; }

 private:
  int width_;
  int height_;
  std::vector<std::uint8_t> luma_;
  std::vector<std::uint8_t> chroma_;
};

}  // namespace quillbeam
