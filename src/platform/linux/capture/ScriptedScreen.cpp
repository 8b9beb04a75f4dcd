#include "platform/linux/capture/ScriptedScreen.h"

#include <algorithm>
#include <utility>

namespace quillbeam {

namespace {

constexpr std::uint8_t blackLuma = 16;
constexpr std::uint8_t noColour = 128;

std::shared_ptr<const PixelBuffer> blackPicture(int width, int height) {
  auto picture = I420Picture::create(width, height);
  if (!picture) return nullptr;
  std::fill_n(picture->yData(), picture->stride() * height, blackLuma);
  std::fill_n(picture->uData(), picture->chromaStride() * height / 2, noColour);
  std::fill_n(picture->vData(), picture->chromaStride() * height / 2, noColour);
  return picture;
}

}  // namespace

ScriptedScreen::ScriptedScreen(int width, int height) : picture_(blackPicture(width, height)) {}

Result<ScreenState> ScriptedScreen::poll() {
  return std::exchange(wasShown_, true) ? ScreenState::unchanged : ScreenState::changed;
}

Result<std::shared_ptr<const PixelBuffer>> ScriptedScreen::grab() { return picture_; }

}  // namespace quillbeam
