#include "platform/linux/x11/PictureConverter.h"

#include <libyuv.h>

#include <algorithm>
#include <cstdlib>

#include "platform/linux/x11/X11Error.h"

namespace quillbeam {

namespace {

constexpr int evenFloor(int value) { return value & ~1; }

// A shape that is off by no more than rounding is stretched rather than framed by a black hairline.
constexpr int roundingSlack = 2;

constexpr int blackLuma = 16;
constexpr int neutralChroma = 128;

struct WritablePlanes {
  std::uint8_t* y;
  std::uint8_t* u;
  std::uint8_t* v;
};

WritablePlanes planesAt(I420Picture& picture, int x, int y) {
  const auto chroma = static_cast<std::ptrdiff_t>(picture.chromaStride()) * (y / 2) + x / 2;
  return {picture.yData() + static_cast<std::ptrdiff_t>(picture.stride()) * y + x, picture.uData() + chroma,
          picture.vData() + chroma};
}

void convertInto(const ScreenPixels& screen, const WritablePlanes& to, const I420Picture& picture, int width,
                 int height) {
  libyuv::ARGBToI420(screen.data, screen.stride, to.y, picture.stride(), to.u, picture.chromaStride(), to.v,
                     picture.chromaStride(), width, height);
}

}  // namespace

Result<void> PictureConverter::convert(const ScreenPixels& screen, I420Picture& picture) {
  const auto target = fit(screen.width, screen.height, picture);
  if (target.width != picture.width() || target.height != picture.height()) {
    libyuv::I420Rect(picture.yData(), picture.stride(), picture.uData(), picture.chromaStride(), picture.vData(),
                     picture.chromaStride(), 0, 0, picture.width(), picture.height(), blackLuma, neutralChroma,
                     neutralChroma);
  }
  if (target.width != evenFloor(screen.width) || target.height != evenFloor(screen.height)) {
    return convertScaled(screen, picture, target);
  }
  convertInto(screen, planesAt(picture, target.x, target.y), picture, target.width, target.height);
  return success;
}

PictureConverter::Rectangle PictureConverter::fit(int width, int height, const I420Picture& picture) {
  const auto scaled = [](int length, int numerator, int denominator) {
    return static_cast<int>((static_cast<std::int64_t>(length) * numerator + denominator / 2) / denominator);
  };
  Rectangle fitted{0, 0, picture.width(), picture.height()};
  const bool screenIsWider =
      static_cast<std::int64_t>(width) * picture.height() > static_cast<std::int64_t>(height) * picture.width();
  if (screenIsWider) {
    fitted.height = evenFloor(scaled(height, picture.width(), width) + 1);
  } else {
    fitted.width = evenFloor(scaled(width, picture.height(), height) + 1);
  }
  fitted.width = std::clamp(fitted.width, 2, picture.width());
  fitted.height = std::clamp(fitted.height, 2, picture.height());
  if (picture.width() - fitted.width <= roundingSlack) fitted.width = picture.width();
  if (picture.height() - fitted.height <= roundingSlack) fitted.height = picture.height();
  fitted.x = evenFloor((picture.width() - fitted.width) / 2);
  fitted.y = evenFloor((picture.height() - fitted.height) / 2);
  return fitted;
}

Result<void> PictureConverter::convertScaled(const ScreenPixels& screen, I420Picture& picture,
                                             const Rectangle& target) {
  // Converting before scaling moves a third of the bytes that scaling BGRA would.
  const int width = evenFloor(screen.width);
  const int height = evenFloor(screen.height);
  if (!unscaled_ || unscaled_->width() != width || unscaled_->height() != height) {
    unscaled_ = I420Picture::create(width, height);
    if (!unscaled_) return X11Error::outOfMemory;
  }
  convertInto(screen, planesAt(*unscaled_, 0, 0), *unscaled_, width, height);
  const auto to = planesAt(picture, target.x, target.y);
  libyuv::I420Scale(unscaled_->yData(), unscaled_->stride(), unscaled_->uData(), unscaled_->chromaStride(),
                    unscaled_->vData(), unscaled_->chromaStride(), width, height, to.y, picture.stride(), to.u,
                    picture.chromaStride(), to.v, picture.chromaStride(), target.width, target.height,
                    libyuv::kFilterBox);
  return success;
}

}  // namespace quillbeam
