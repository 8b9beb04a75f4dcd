#include "TextPage.h"

#include <algorithm>
#include <string>

namespace quillbeam::demo {

namespace {

constexpr int dot = 2;
constexpr int lineHeight = 26;
constexpr int margin = 30;

std::string line(int number) {
  return std::to_string(number) + ". THE NUMBERS OF REGION " + std::to_string(number * 7 % 13) +
         " WERE REVIEWED, ITEM " + std::to_string(number * 31 % 97) + " GOES TO TEAM " + std::to_string(number % 9) +
         ", DUE ON DAY " + std::to_string(number % 28 + 1) + " OF THE MONTH - PLEASE CONFIRM UNTIL NOON.";
}

}  // namespace

TextPage::TextPage(int width, int lines)
    : width_(width), height_(lines * lineHeight), pixels_(static_cast<std::size_t>(width) * height_) {
  Canvas canvas(pixels_, width_, height_);
  canvas.fill(canvas.all(), 0xFFFFFF);
  for (int number = 0; number < lines; ++number) {
    canvas.text(margin, number * lineHeight + 4, dot, line(number + 1), 0x202020);
  }
}

void TextPage::paint(Canvas& canvas, Rect area, int scroll) const {
  const int width = std::min(area.width, width_);
  for (int y = 0; y < area.height; ++y) {
    const auto* from = pixels_.data() + static_cast<std::size_t>((scroll + y) % height_) * width_;
    std::copy_n(from, width, canvas.row(area.y + y).begin() + area.x);
  }
}

}  // namespace quillbeam::demo
