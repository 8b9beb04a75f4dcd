#pragma once

#include "Scene.h"
#include "TextPage.h"

namespace quillbeam::demo {

/// A page of text that stands still.
class PageScene final : public Scene {
 public:
  void prepare(Canvas& canvas) override { TextPage(canvas.width(), 120).paint(canvas, canvas.all(), 0); }
  void draw(Canvas&, std::int64_t) override {}
  std::vector<Rect> changing(const Canvas&) const override { return {}; }
};

}  // namespace quillbeam::demo
