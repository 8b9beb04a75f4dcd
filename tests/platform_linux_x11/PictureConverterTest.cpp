#include "platform/linux/x11/PictureConverter.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "platform/linux/x11/PicturePool.h"

namespace quillbeam {
namespace {

struct Yuv {
  int y, u, v;
};

Yuv at(const PixelBuffer& picture, int x, int y) {
  const auto chroma = [&](Plane plane) { return plane.data[plane.stride * (y / 2) + x / 2]; };
  return {picture.y().data[picture.y().stride * y + x], chroma(picture.u()), chroma(picture.v())};
}

bool isNear(const Yuv& a, const Yuv& b) {
  constexpr int tolerance = 2;
  return std::abs(a.y - b.y) <= tolerance && std::abs(a.u - b.u) <= tolerance && std::abs(a.v - b.v) <= tolerance;
}

constexpr Yuv black{16, 128, 128};
constexpr Yuv red{81, 90, 240};
constexpr Yuv blue{41, 240, 110};

/// A screen whose left half is red, right half blue.
class TwoHalves {
 public:
  TwoHalves(int width, int height)
      : width_(width), height_(height), pixels_(static_cast<std::size_t>(width) * height, 0x0000ff) {
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width / 2; ++x) pixels_[static_cast<std::size_t>(y) * width + x] = 0xff0000;
    }
  }
  ScreenPixels pixels() const {
    return {reinterpret_cast<const std::uint8_t*>(pixels_.data()), width_ * 4, width_, height_};
  }

 private:
  int width_;
  int height_;
  std::vector<std::uint32_t> pixels_;
};

std::unique_ptr<I420Picture> convert(const ScreenPixels& screen, int width, int height) {
  auto picture = I420Picture::create(width, height);
  PictureConverter converter;
  EXPECT_TRUE(converter.convert(screen, *picture));
  return picture;
}

TEST(PictureConverter, fillsThePictureWhenShapesDifferByNoMoreThanRounding) {
  struct {
    int width, height, toWidth, toHeight;
  } const cases[] = {{64, 36, 64, 36}, {65, 37, 64, 36}, {256, 144, 64, 36}, {344, 144, 64, 26}, {32, 18, 64, 36}};
  for (const auto& size : cases) {
    SCOPED_TRACE(std::to_string(size.width) + "x" + std::to_string(size.height));
    const auto picture = convert(TwoHalves(size.width, size.height).pixels(), size.toWidth, size.toHeight);
    EXPECT_TRUE(isNear(at(*picture, 0, 0), red));
    EXPECT_TRUE(isNear(at(*picture, 0, size.toHeight - 1), red));
    EXPECT_TRUE(isNear(at(*picture, size.toWidth - 1, 0), blue));
    EXPECT_TRUE(isNear(at(*picture, size.toWidth - 1, size.toHeight - 1), blue));
  }
}

TEST(PictureConverter, centresOtherShapesOnBlack) {
  const auto wide = convert(TwoHalves(128, 32).pixels(), 64, 64);
  EXPECT_TRUE(isNear(at(*wide, 10, 10), black));
  EXPECT_TRUE(isNear(at(*wide, 50, 54), black));
  EXPECT_TRUE(isNear(at(*wide, 10, 32), red));
  EXPECT_TRUE(isNear(at(*wide, 54, 32), blue));

  const auto tall = convert(TwoHalves(32, 128).pixels(), 64, 64);
  EXPECT_TRUE(isNear(at(*tall, 10, 32), black));
  EXPECT_TRUE(isNear(at(*tall, 26, 2), red));
  EXPECT_TRUE(isNear(at(*tall, 37, 61), blue));
}

TEST(PicturePool, usesMemoryAgainOnceTheLastHolderLetsGo) {
  std::shared_ptr<I420Picture> outlives;
  {
    PicturePool pool(64, 36, 1);
    auto first = pool.take();
    auto second = pool.take();
    const auto* memory = first->yData();
    EXPECT_NE(second->yData(), memory);
    const auto shared = first;
    first.reset();
    EXPECT_NE(pool.take()->yData(), memory) << "still held elsewhere";
    outlives = shared;
  }
  EXPECT_EQ(outlives->width(), 64);
}

}  // namespace
}  // namespace quillbeam
