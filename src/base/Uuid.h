#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quillbeam {

/// A 128-bit identifier; text form in upper case, "8-4-4-4-12". `platform/Random.h` makes fresh ones.
class Uuid {
 public:
  using Bytes = std::array<std::uint8_t, 16>;

  /// A version 4 identifier from 16 random bytes (the version and variant bits are set here).
  static Uuid fromRandom(Bytes random);
  /// Any letter case; nullopt unless the text is exactly an identifier.
  static std::optional<Uuid> parse(std::string_view text);

  std::string string() const;
  auto operator<=>(const Uuid&) const = default;

 private:
  explicit Uuid(Bytes bytes) : bytes_(bytes) {}
  Bytes bytes_;
};

}  // namespace quillbeam
