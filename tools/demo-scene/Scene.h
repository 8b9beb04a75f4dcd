#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "Canvas.h"

namespace quillbeam::demo {

inline constexpr int sceneFramesPerSecond = 30;

/// A picture that changes with the frame number and with nothing else.
class Scene {
 public:
  virtual ~Scene() = default;

  /// Paints what never changes.
  virtual void prepare(Canvas& canvas) = 0;
  /// Paints frame `frame` over a prepared canvas that may hold any other frame.
  virtual void draw(Canvas& canvas, std::int64_t frame) = 0;
  /// The areas that `draw` touches; empty for a picture that stands still.
  virtual std::vector<Rect> changing(const Canvas& canvas) const = 0;
};

/// "clock", "meeting", "page" or "colours"; nullptr for other names.
std::unique_ptr<Scene> makeScene(std::string_view name);

}  // namespace quillbeam::demo
