#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace quillbeam::demo {

/// 0xRRGGBB.
using Color = std::uint32_t;

struct Rect {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
};

/// Pixels of one picture, 32 bits each (BGRX in memory), rows without gaps. Borrows the memory.
class Canvas {
 public:
  Canvas(std::span<std::uint32_t> pixels, int width, int height) : pixels_(pixels), width_(width), height_(height) {}

  int width() const { return width_; }
  int height() const { return height_; }
  Rect all() const { return {0, 0, width_, height_}; }
  std::span<std::uint32_t> row(int y) { return pixels_.subspan(static_cast<std::size_t>(y) * width_, width_); }

  /// Parts beyond the edges are left out.
  void fill(Rect area, Color color);
  /// Capital letters, digits and a few marks; each dot of a glyph is a square of `dot` pixels.
  void text(int x, int y, int dot, std::string_view text, Color color);

 private:
  std::span<std::uint32_t> pixels_;
  int width_;
  int height_;
};

/// How far the next glyph stands from this one.
constexpr int glyphAdvance(int dot) { return 6 * dot; }

}  // namespace quillbeam::demo
