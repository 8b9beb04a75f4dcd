#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <utility>
#include <vector>

namespace quillbeam {

using Bytes = std::vector<std::uint8_t>;
using ByteSpan = std::span<const std::uint8_t>;

/// A sequence of bytes held as shared slices: appending, cutting from the front and copying the chain move no bytes.
/// A value; the slices are immutable, so chains that share them may live on different queues.
class ByteChain {
 public:
  ByteChain() = default;
  explicit ByteChain(Bytes bytes) { append(std::move(bytes)); }
  ByteChain(const ByteChain&) = default;
  ByteChain(ByteChain&& other) noexcept;  ///< leaves `other` empty
  ByteChain& operator=(const ByteChain&) = default;
  ByteChain& operator=(ByteChain&& other) noexcept;

  void append(Bytes bytes);
  void append(const ByteChain& other);
  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  /// Cuts the first `count` bytes (at most `size()`) off this chain and returns them as one of their own.
  ByteChain takeFront(std::size_t count);
  void clear();

  /// Calls `visit(ByteSpan)` for each slice in order.
  template <class Visitor>
  void forEach(Visitor visit) const {
    for (const Slice& slice : slices_) visit(slice.view);
  }
  /// One contiguous copy.
  Bytes flattened() const;

 private:
  struct Slice {
    std::shared_ptr<const Bytes> owner;
    ByteSpan view;
  };
  std::deque<Slice> slices_;
  std::size_t size_ = 0;
};

}  // namespace quillbeam
