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

std::string truth(bool value) { return value ? "true" : "false"; }

}  // namespace quillbeam
