#pragma once

#include "Scene.h"

namespace quillbeam::demo {

/// Four quarters in known colours: red, green, blue, grey. Stands still.
class ColoursScene final : public Scene {
 public:
  void prepare(Canvas& canvas) override {
    const int width = canvas.width() / 2;
    const int height = canvas.height() / 2;
    canvas.fill({0, 0, width, height}, 0xC02020);
    canvas.fill({width, 0, width, height}, 0x20A040);
    canvas.fill({0, height, width, height}, 0x2040C0);
    canvas.fill({width, height, width, height}, 0x808080);
  }
  void draw(Canvas&, std::int64_t) override {}
  std::vector<Rect> changing(const Canvas&) const override { return {}; }
};

}  // namespace quillbeam::demo
