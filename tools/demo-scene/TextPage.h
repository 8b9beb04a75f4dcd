#pragma once

#include <vector>

#include "Canvas.h"

namespace quillbeam::demo {

/// A long page of black text on white, the same every time.
class TextPage {
 public:
  TextPage(int width, int lines);

  int height() const { return height_; }
  /// Paints the page's rows from `scroll` on into `area`; the page repeats when it ends.
  void paint(Canvas& canvas, Rect area, int scroll) const;

 private:
  int width_;
  int height_;
  std::vector<std::uint32_t> pixels_;
};

}  // namespace quillbeam::demo
