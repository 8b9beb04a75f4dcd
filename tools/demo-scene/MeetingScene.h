#pragma once

#include <optional>

#include "Scene.h"
#include "TextPage.h"

namespace quillbeam::demo {

/// What a shared document with four cameras looks like to an encoder: text that scrolls steadily, and two by two tiles
/// of soft moving shapes under camera noise.
class MeetingScene final : public Scene {
 public:
  void prepare(Canvas& canvas) override;
  void draw(Canvas& canvas, std::int64_t frame) override;
  std::vector<Rect> changing(const Canvas& canvas) const override;

 private:
  static Rect cameras(const Canvas& canvas);
  static void drawCamera(Canvas& canvas, Rect area, int camera, std::int64_t frame);

  std::optional<TextPage> page_;
};

}  // namespace quillbeam::demo
