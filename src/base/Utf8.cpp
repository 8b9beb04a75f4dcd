#include "base/Utf8.h"

#include <cstdint>
#include <cstring>

namespace quillbeam {

namespace {

/// What may follow a leading byte: how many bytes, and the range of the first of them, which is where overlong forms,
/// surrogates and too large code points show.
struct Sequence {
  std::size_t length;
  std::uint8_t secondFrom;
  std::uint8_t secondTo;
};

constexpr Sequence sequenceOf(std::uint8_t lead) {
  if (lead < 0x80) return {1, 0, 0};
  if (lead < 0xC2) return {0, 0, 0};
  if (lead < 0xE0) return {2, 0x80, 0xBF};
  if (lead == 0xE0) return {3, 0xA0, 0xBF};
  if (lead == 0xED) return {3, 0x80, 0x9F};
  if (lead < 0xF0) return {3, 0x80, 0xBF};
  if (lead == 0xF0) return {4, 0x90, 0xBF};
  if (lead < 0xF4) return {4, 0x80, 0xBF};
  if (lead == 0xF4) return {4, 0x80, 0x8F};
  return {0, 0, 0};
}

/// The length of the well-formed character at the front of a non-empty text; 0 when there is none.
std::size_t characterLength(std::string_view text) {
  const auto byteAt = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
  const Sequence sequence = sequenceOf(byteAt(0));
  if (sequence.length <= 1) return sequence.length;
  if (text.size() < sequence.length || byteAt(1) < sequence.secondFrom || byteAt(1) > sequence.secondTo) return 0;
  for (std::size_t i = 2; i < sequence.length; ++i) {
    if ((byteAt(i) & 0xC0) != 0x80) return 0;
  }
  return sequence.length;
}

std::size_t wellFormedPrefix(std::string_view text) {
  std::size_t position = 0;
  while (position < text.size()) {
    // Most text is ASCII: eight bytes at a time.
    std::uint64_t word = 0;
    while (text.size() - position >= sizeof(word)) {
      std::memcpy(&word, text.data() + position, sizeof(word));
      if ((word & 0x8080808080808080) != 0) break;
      position += sizeof(word);
    }
    if (position == text.size()) break;
    const std::size_t length = characterLength(text.substr(position));
    if (length == 0) break;
    position += length;
  }
  return position;
}

}  // namespace

bool isUtf8(std::string_view text) { return wellFormedPrefix(text) == text.size(); }

std::string replacingBadUtf8(std::string_view text) {
  std::string repaired;
  while (true) {
    const std::size_t good = wellFormedPrefix(text);
    repaired += text.substr(0, good);
    if (good == text.size()) return repaired;
    repaired += "\xEF\xBF\xBD";
    text.remove_prefix(good + 1);
  }
}

}  // namespace quillbeam
