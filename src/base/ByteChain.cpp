#include "base/ByteChain.h"

#include <algorithm>

namespace quillbeam {

ByteChain::ByteChain(ByteChain&& other) noexcept
    : slices_(std::exchange(other.slices_, {})), size_(std::exchange(other.size_, 0)) {}

ByteChain& ByteChain::operator=(ByteChain&& other) noexcept {
  slices_ = std::exchange(other.slices_, {});
  size_ = std::exchange(other.size_, 0);
  return *this;
}

void ByteChain::append(Bytes bytes) {
  if (bytes.empty()) return;
  auto owner = std::make_shared<const Bytes>(std::move(bytes));
  const ByteSpan view = *owner;
  slices_.push_back({std::move(owner), view});
  size_ += view.size();
}

void ByteChain::append(const ByteChain& other) {
  const std::size_t added = other.size_;
  // By index and count, so that a chain may be appended to itself.
  for (std::size_t i = 0, count = other.slices_.size(); i < count; ++i) slices_.push_back(Slice(other.slices_[i]));
  size_ += added;
}

ByteChain ByteChain::takeFront(std::size_t count) {
  ByteChain front;
  std::size_t missing = std::min(count, size_);
  size_ -= missing;
  front.size_ = missing;
  while (missing > 0) {
    Slice& first = slices_.front();
    const std::size_t cut = std::min(missing, first.view.size());
    front.slices_.push_back({first.owner, first.view.first(cut)});
    first.view = first.view.subspan(cut);
    if (first.view.empty()) slices_.pop_front();
    missing -= cut;
  }
  return front;
}

void ByteChain::clear() {
  slices_.clear();
  size_ = 0;
}

Bytes ByteChain::flattened() const {
  Bytes bytes;
  bytes.reserve(size_);
  forEach([&](ByteSpan slice) { bytes.insert(bytes.end(), slice.begin(), slice.end()); });
  return bytes;
}

}  // namespace quillbeam
