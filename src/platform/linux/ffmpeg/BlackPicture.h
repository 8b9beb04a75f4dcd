#pragma once

#include <vector>

#include "platform/linux/ffmpeg/VideoEncoder.h"
#include "platform/media/PixelBuffer.h"

namespace quillbeam {

/// What a track shows before its first picture.
class BlackPicture final : public PixelBuffer {
 public:
  explicit BlackPicture(PictureSize size)
      : size_(size),
        luma_(static_cast<std::size_t>(size.width) * size.height, blackLuma),
        chroma_(luma_.size() / 4, noChroma) {}

  int width() const override { return size_.width; }
  int height() const override { return size_.height; }
  Plane y() const override { return {luma_.data(), size_.width}; }
  Plane u() const override { return {chroma_.data(), size_.width / 2}; }
  Plane v() const override { return u(); }

 private:
  static constexpr std::uint8_t blackLuma = 16;
  static constexpr std::uint8_t noChroma = 128;

  PictureSize size_;
  std::vector<std::uint8_t> luma_;
  std::vector<std::uint8_t> chroma_;
};

}  // namespace quillbeam
