#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <variant>

#include "backup/SegmentBackupMetadata.h"
#include "base/ByteChain.h"

namespace quillbeam {

/// Segment bytes on their way into parts of one fixed size. Cutting moves no bytes. Segments that are also on disk are
/// held up to `maxHeldSize` together; of those behind, only their place is, and they are read back, each as a whole,
/// before a part is cut from them. A value; not thread-safe.
class PartBuffer {
 public:
  static constexpr std::size_t fixedPartSize = 5'242'880;
  static constexpr std::size_t maxByteBufferSize = 157'286'400;
  static constexpr std::size_t maxHeldSize = 4 * fixedPartSize;

  bool hasRoomFor(std::size_t bytes) const { return size() + bytes <= maxByteBufferSize; }
  /// `savedAs`: where the bytes can be read back; nullopt when they are nowhere else.
  void append(const ByteChain& bytes, std::optional<FMP4SegmentInfo> savedAs = std::nullopt);
  void clear();

  /// Of all that waits, held or not.
  std::size_t size() const { return held_.size() + behindSize_; }
  bool empty() const { return size() == 0; }
  bool hasPart() const { return size() >= fixedPartSize; }
  /// Of a part, in whole per cent; above 100 while several parts wait.
  std::size_t percentOfPart() const { return size() * 100 / fixedPartSize; }

  /// What has to be read back before the next part, or the rest, can be taken.
  std::optional<FMP4SegmentInfo> nextToReadBack() const;
  /// Its bytes; none when it could not be read.
  void didReadBack(const ByteChain& bytes);

  /// The next full part; nullopt while there is none.
  std::optional<ByteChain> takePart();
  /// All that is left.
  ByteChain takeRest();

 private:
  using Waiting = std::variant<ByteChain, FMP4SegmentInfo>;

  void holdNext();

  ByteChain held_;  ///< from the front on, without a gap
  std::deque<Waiting> behind_;
  std::size_t behindSize_ = 0;
};

}  // namespace quillbeam
