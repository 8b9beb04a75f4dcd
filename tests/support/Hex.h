#pragma once

#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "base/ByteChain.h"

namespace quillbeam::test {

/// "0c 02 00" → the bytes.
inline Bytes fromHex(const std::string& text) {
  Bytes bytes;
  std::istringstream words(text);
  for (std::string word; words >> word;) bytes.push_back(static_cast<std::uint8_t>(std::stoul(word, nullptr, 16)));
  return bytes;
}

inline std::string toHex(ByteSpan bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : bytes) {
    if (!text.empty()) text += ' ';
    text += {digits[byte >> 4], digits[byte & 15]};
  }
  return text;
}

}  // namespace quillbeam::test
