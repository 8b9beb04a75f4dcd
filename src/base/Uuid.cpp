#include "base/Uuid.h"

namespace quillbeam {

namespace {

constexpr std::string_view shape = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";

std::optional<std::uint8_t> digitValue(char digit) {
  if (digit >= '0' && digit <= '9') return static_cast<std::uint8_t>(digit - '0');
  if (digit >= 'a' && digit <= 'f') return static_cast<std::uint8_t>(digit - 'a' + 10);
  if (digit >= 'A' && digit <= 'F') return static_cast<std::uint8_t>(digit - 'A' + 10);
  return std::nullopt;
}

}  // namespace

Uuid Uuid::fromRandom(Bytes random) {
  random[6] = static_cast<std::uint8_t>((random[6] & 0x0F) | 0x40);
  random[8] = static_cast<std::uint8_t>((random[8] & 0x3F) | 0x80);
  return Uuid(random);
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
  if (text.size() != shape.size()) return std::nullopt;
  Bytes bytes{};
  std::size_t digits = 0;
  for (std::size_t i = 0; i < shape.size(); ++i) {
    if (shape[i] == '-') {
      if (text[i] != '-') return std::nullopt;
      continue;
    }
    const auto value = digitValue(text[i]);
    if (!value) return std::nullopt;
    bytes[digits / 2] = static_cast<std::uint8_t>(bytes[digits / 2] << 4 | *value);
    ++digits;
  }
  return Uuid(bytes);
}

std::string Uuid::string() const {
  constexpr std::string_view hexDigits = "0123456789ABCDEF";
  std::string text(shape);
  std::size_t digits = 0;
  for (char& character : text) {
    if (character == '-') continue;
    const std::uint8_t byte = bytes_[digits / 2];
    character = hexDigits[digits % 2 == 0 ? byte >> 4 : byte & 0x0F];
    ++digits;
  }
  return text;
}

}  // namespace quillbeam
