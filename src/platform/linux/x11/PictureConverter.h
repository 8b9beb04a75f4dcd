#pragma once

#include <cstdint>
#include <memory>

#include "base/Result.h"
#include "platform/linux/x11/I420Picture.h"

namespace quillbeam {

/// Rows of 32-bit BGRA as they were read from a screen; alpha is ignored.
struct ScreenPixels {
  const std::uint8_t* data = nullptr;
  int stride = 0;  ///< bytes
  int width = 0;
  int height = 0;
};

/// Turns screens of any size into pictures of one size: converted once to I420, then scaled to fit, centred on black
/// where the shapes differ. An odd last row or column of the screen is left out.
class PictureConverter {
 public:
  /// `X11Error::outOfMemory`.
  Result<void> convert(const ScreenPixels& screen, I420Picture& picture);

 private:
  struct Rectangle {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
  };
  static Rectangle fit(int width, int height, const I420Picture& picture);
  Result<void> convertScaled(const ScreenPixels& screen, I420Picture& picture, const Rectangle& target);

  std::unique_ptr<I420Picture> unscaled_;  // in the screen's size, kept between pictures
};

}  // namespace quillbeam
