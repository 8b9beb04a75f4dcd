#include "MeetingScene.h"

#include <array>
#include <cmath>
#include <numbers>

#include "FrameMark.h"

namespace quillbeam::demo {

namespace {

constexpr int cameraWidth = 320;
constexpr int cameraHeight = 240;
constexpr int scrollPerFrame = 3;

constexpr int waveSteps = 512;
std::array<int, waveSteps> makeWave() {
  std::array<int, waveSteps> wave{};
  for (int i = 0; i < waveSteps; ++i) wave[i] = std::lround(50 * std::sin(2 * std::numbers::pi * i / waveSteps));
  return wave;
}

/// Even noise of 0…7 that follows from the place and the frame alone.
std::uint32_t noise(std::uint32_t x, std::uint32_t y, std::uint32_t frame) {
  std::uint32_t mixed = x * 0x9E3779B1u ^ y * 0x85EBCA77u ^ frame * 0xC2B2AE3Du;
  mixed ^= mixed >> 15;
  mixed *= 0x2C1B3C6Du;
  return mixed >> 29;
}

}  // namespace

Rect MeetingScene::cameras(const Canvas& canvas) {
  return {canvas.width() - 2 * cameraWidth - 20, canvas.height() - 2 * cameraHeight - 20, 2 * cameraWidth,
          2 * cameraHeight};
}

void MeetingScene::prepare(Canvas& canvas) { page_.emplace(canvas.width(), 160); }

void MeetingScene::drawCamera(Canvas& canvas, Rect area, int camera, std::int64_t frame) {
  static const auto wave = makeWave();
  const auto time = static_cast<std::uint32_t>(frame);
  const std::uint32_t speed = camera + 1;
  for (int y = 0; y < area.height; ++y) {
    auto row = canvas.row(area.y + y).subspan(area.x, area.width);
    const int across = wave[(y * 2 + time * speed) % waveSteps];
    for (int x = 0; x < area.width; ++x) {
      const int shape = wave[(x + time * (5 - speed)) % waveSteps] + across;
      const std::uint32_t level = 128 + shape + noise(x, y, time) - 4;
      row[x] = level << 16 | (level * 3 / 4) << 8 | (255 - level);
    }
  }
}

void MeetingScene::draw(Canvas& canvas, std::int64_t frame) {
  page_->paint(canvas, canvas.all(), static_cast<int>(frame * scrollPerFrame % page_->height()));
  const Rect area = cameras(canvas);
  for (int camera = 0; camera < 4; ++camera) {
    drawCamera(canvas,
               {area.x + camera % 2 * cameraWidth, area.y + camera / 2 * cameraHeight, cameraWidth, cameraHeight},
               camera, frame);
  }
  paintFrameMark(canvas, frame);
}

std::vector<Rect> MeetingScene::changing(const Canvas& canvas) const { return {canvas.all()}; }

}  // namespace quillbeam::demo
