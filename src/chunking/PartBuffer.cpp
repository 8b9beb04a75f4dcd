#include "chunking/PartBuffer.h"

#include <utility>

namespace quillbeam {

void PartBuffer::append(const ByteChain& bytes, std::optional<FMP4SegmentInfo> savedAs) {
  if (behind_.empty() && (!savedAs || held_.size() + bytes.size() <= maxHeldSize)) return held_.append(bytes);
  behindSize_ += bytes.size();
  if (savedAs) {
    behind_.emplace_back(*std::move(savedAs));
  } else {
    behind_.emplace_back(bytes);
  }
}

void PartBuffer::clear() { *this = PartBuffer(); }

std::optional<FMP4SegmentInfo> PartBuffer::nextToReadBack() const {
  if (held_.size() >= fixedPartSize || behind_.empty()) return std::nullopt;
  return std::get<FMP4SegmentInfo>(behind_.front());
}

void PartBuffer::didReadBack(const ByteChain& bytes) {
  behindSize_ -= static_cast<std::size_t>(std::get<FMP4SegmentInfo>(behind_.front()).size);
  behind_.pop_front();
  held_.append(bytes);
  holdNext();
}

/// What is behind only because of its order moves up with it.
void PartBuffer::holdNext() {
  for (; !behind_.empty() && std::holds_alternative<ByteChain>(behind_.front()); behind_.pop_front()) {
    const auto& bytes = std::get<ByteChain>(behind_.front());
    behindSize_ -= bytes.size();
    held_.append(bytes);
  }
}

std::optional<ByteChain> PartBuffer::takePart() {
  if (held_.size() < fixedPartSize) return std::nullopt;
  return held_.takeFront(fixedPartSize);
}

ByteChain PartBuffer::takeRest() { return held_.takeFront(held_.size()); }

}  // namespace quillbeam
