#include "ClockScene.h"

#include <cstdio>

#include "FrameMark.h"

namespace quillbeam::demo {

namespace {

constexpr Color background = 0x16324A;
constexpr Color foreground = 0xF4F1E8;
constexpr Color bar = 0xE8A33D;
constexpr int dot = 24;
constexpr int barFrames = 4 * sceneFramesPerSecond;

}  // namespace

Rect ClockScene::digits(const Canvas& canvas) {
  const int width = 8 * glyphAdvance(dot);
  return {(canvas.width() - width) / 2, canvas.height() / 3, width, 7 * dot};
}

Rect ClockScene::track(const Canvas& canvas) { return {0, canvas.height() * 3 / 4, canvas.width(), 60}; }

void ClockScene::prepare(Canvas& canvas) {
  canvas.fill(canvas.all(), background);
  canvas.text(80, 80, 8, "PRIVATE DESKTOP", foreground);
}

void ClockScene::draw(Canvas& canvas, std::int64_t frame) {
  const auto seconds = static_cast<int>(frame / sceneFramesPerSecond);
  char text[16];
  std::snprintf(text, sizeof(text), "%02d:%02d:%02d", seconds / 3600 % 100, seconds / 60 % 60, seconds % 60);
  canvas.fill(digits(canvas), background);
  canvas.text(digits(canvas).x, digits(canvas).y, dot, text, foreground);

  Rect block = track(canvas);
  canvas.fill(block, background);
  block.x = static_cast<int>(frame % barFrames * canvas.width() / barFrames);
  block.width = 120;
  canvas.fill(block, bar);
  paintFrameMark(canvas, frame);
}

std::vector<Rect> ClockScene::changing(const Canvas& canvas) const {
  return {digits(canvas), track(canvas), frameMarkArea};
}

}  // namespace quillbeam::demo
