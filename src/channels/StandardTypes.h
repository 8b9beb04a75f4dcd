#pragma once

#include <cstddef>
#include <cstdint>

namespace quillbeam {

/// The first byte of every value of the standard codec.
enum class StandardType : std::uint8_t {
  nil = 0,
  yes = 1,
  no = 2,
  int32 = 3,
  int64 = 4,
  largeInteger = 5,
  float64 = 6,
  string = 7,
  uint8List = 8,
  int32List = 9,
  int64List = 10,
  float64List = 11,
  list = 12,
  map = 13,
  float32List = 14,
};

/// Sizes below this are one byte; the two values from it on announce 16 and 32 bits.
inline constexpr std::uint8_t sizeFollowsIn16Bits = 254;
inline constexpr std::uint8_t sizeFollowsIn32Bits = 255;

}  // namespace quillbeam
