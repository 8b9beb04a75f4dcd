#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "platform/media/PixelBuffer.h"

namespace quillbeam {

/// One picture's memory: written by its maker, immutable once it is shared.
class I420Picture : public PixelBuffer {
 public:
  /// `width` and `height` are even. nullptr when memory is short. Contents are undefined.
  static std::unique_ptr<I420Picture> create(int width, int height);

  int width() const override { return width_; }
  int height() const override { return height_; }
  Plane y() const override { return {yData(), stride_}; }
  Plane u() const override { return {uData(), chromaStride()}; }
  Plane v() const override { return {vData(), chromaStride()}; }

  int stride() const { return stride_; }
  int chromaStride() const { return stride_ / 2; }
  std::uint8_t* yData() const { return memory_.get(); }
  std::uint8_t* uData() const { return yData() + lumaBytes(stride_, height_); }
  std::uint8_t* vData() const { return uData() + lumaBytes(stride_, height_) / 4; }

 private:
  struct Free {
    void operator()(std::uint8_t* memory) const { std::free(memory); }
  };

  I420Picture(int width, int height, int stride, std::unique_ptr<std::uint8_t, Free> memory);
  static std::size_t lumaBytes(int stride, int height) { return static_cast<std::size_t>(stride) * height; }

  int width_;
  int height_;
  int stride_;
  std::unique_ptr<std::uint8_t, Free> memory_;
};

}  // namespace quillbeam
