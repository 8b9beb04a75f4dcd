#pragma once

#include "Canvas.h"

namespace quillbeam::demo {

/// The frame number as 24 black or white squares of 16 pixels in the top left corner, lowest bit first: readable in a
/// recording whatever the encoder did to it.
inline constexpr int frameMarkBits = 24;
inline constexpr int frameMarkSquare = 16;
inline constexpr Rect frameMarkArea{0, 0, frameMarkBits* frameMarkSquare, frameMarkSquare};

inline void paintFrameMark(Canvas& canvas, std::int64_t frame) {
  for (int bit = 0; bit < frameMarkBits; ++bit) {
    const Color color = frame >> bit & 1 ? 0xFFFFFF : 0x000000;
    canvas.fill({bit * frameMarkSquare, 0, frameMarkSquare, frameMarkSquare}, color);
  }
}

}  // namespace quillbeam::demo
