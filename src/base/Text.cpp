#include "base/Text.h"

#include <array>
#include <charconv>

namespace quillbeam {

std::string decimal(double number) {
  std::array<char, 32> buffer;
  const auto [end, error] = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number);
  std::string text(buffer.data(), end);
  if (text.find_first_of(".en") == std::string::npos) text += ".0";
  return text;
}

std::string fixedPoint(double number, int decimals) {
  std::array<char, 400> buffer;  // the largest double has 309 digits before the point
  const auto [end, error] =
      std::to_chars(buffer.data(), buffer.data() + buffer.size(), number, std::chars_format::fixed, decimals);
  return {buffer.data(), end};
}

std::string truth(bool value) { return value ? "true" : "false"; }

}  // namespace quillbeam
