#pragma once

#include <string>
#include <string_view>

#include "base/ByteChain.h"
#include "base/Result.h"
#include "base/Value.h"

namespace quillbeam {

/// Reads values off the front of one message whose bytes nobody vouches for.
class StandardCodecReader {
 public:
  explicit StandardCodecReader(ByteSpan message) : message_(message) {}

  Result<std::uint8_t> readByte();
  Result<Value> readValue();
  bool atEnd() const { return position_ == message_.size(); }
  /// `CommonError::malformedData` at the current position.
  Error malformed(std::string_view what) const;

 private:
  Result<ByteSpan> readRaw(std::size_t count);
  Result<void> alignTo(std::size_t width);
  Result<std::size_t> readSize();
  Result<std::string> readText();
  Result<Value> readList();
  Result<Value> readMap();
  Result<Value> readNested(Result<Value> (StandardCodecReader::*read)());
  template <class Number>
  Result<Number> readNumber();
  template <class Number>
  Result<Value> readNumbers();
  template <class T>
  Result<Value> asValue(Result<T> content);

  ByteSpan message_;
  std::size_t position_ = 0;
  std::size_t depth_ = 0;
  std::size_t values_ = 0;
};

}  // namespace quillbeam
