#pragma once

#include "Scene.h"

namespace quillbeam::demo {

/// Seconds since the start in big digits, and a bar that crosses the screen once in four seconds.
class ClockScene final : public Scene {
 public:
  void prepare(Canvas& canvas) override;
  void draw(Canvas& canvas, std::int64_t frame) override;
  std::vector<Rect> changing(const Canvas& canvas) const override;

 private:
  static Rect digits(const Canvas& canvas);
  static Rect track(const Canvas& canvas);
};

}  // namespace quillbeam::demo
