#include "platform/linux/x11/I420Picture.h"

#include <utility>

#include "base/Check.h"

namespace quillbeam {

namespace {

// Rows begin on cache lines, chroma rows too, so that conversion and encoder never straddle one.
constexpr int rowAlignment = 128;
constexpr std::size_t memoryAlignment = 64;

}  // namespace

std::unique_ptr<I420Picture> I420Picture::create(int width, int height) {
  QB_CHECK(width > 0 && height > 0 && width % 2 == 0 && height % 2 == 0);
  const int stride = (width + rowAlignment - 1) / rowAlignment * rowAlignment;
  std::unique_ptr<std::uint8_t, Free> memory(
      static_cast<std::uint8_t*>(std::aligned_alloc(memoryAlignment, lumaBytes(stride, height) / 2 * 3)));
  if (!memory) return nullptr;
  return std::unique_ptr<I420Picture>(new I420Picture(width, height, stride, std::move(memory)));
}

I420Picture::I420Picture(int width, int height, int stride, std::unique_ptr<std::uint8_t, Free> memory)
    : width_(width), height_(height), stride_(stride), memory_(std::move(memory)) {}

}  // namespace quillbeam
