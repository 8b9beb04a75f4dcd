#pragma once

#include <cstddef>
#include <optional>

#include "base/ByteChain.h"

namespace quillbeam {

/// Segment bytes on their way into parts of one fixed size. Cutting moves no bytes. A value; not thread-safe.
class PartBuffer {
 public:
  static constexpr std::size_t fixedPartSize = 5'242'880;
  static constexpr std::size_t maxByteBufferSize = 157'286'400;

  bool hasRoomFor(std::size_t bytes) const { return bytes_.size() + bytes <= maxByteBufferSize; }
  void append(const ByteChain& bytes) { bytes_.append(bytes); }
  void clear() { bytes_.clear(); }

  std::size_t size() const { return bytes_.size(); }
  bool empty() const { return bytes_.empty(); }
  /// Of a part, in whole per cent; above 100 while several parts wait.
  std::size_t percentOfPart() const { return bytes_.size() * 100 / fixedPartSize; }

  /// The next full part; nullopt while there is none.
  std::optional<ByteChain> takePart() {
    if (bytes_.size() < fixedPartSize) return std::nullopt;
    return bytes_.takeFront(fixedPartSize);
  }
  /// All that is left.
  ByteChain takeRest() { return bytes_.takeFront(bytes_.size()); }

 private:
  ByteChain bytes_;
};

}  // namespace quillbeam
