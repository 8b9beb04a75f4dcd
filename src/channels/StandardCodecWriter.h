#pragma once

#include <string_view>

#include "base/ByteChain.h"
#include "base/Value.h"

namespace quillbeam {

/// Appends values to one message. The message starts where the writer starts: alignment counts from there.
class StandardCodecWriter {
 public:
  void writeByte(std::uint8_t byte) { message_.push_back(byte); }
  void writeValue(const Value& value);
  Bytes take() { return std::move(message_); }

 private:
  void put(std::monostate);
  void put(bool flag);
  void put(std::int32_t number);
  void put(std::int64_t number);
  void put(double number);
  void put(const std::string& text);
  void put(const Value::Bytes& bytes);
  void put(const Value::Ints32& numbers);
  void put(const Value::Ints64& numbers);
  void put(const Value::Floats32& numbers);
  void put(const Value::Floats64& numbers);
  void put(const ValueList& list);
  void put(const ValueMap& map);

  void writeSize(std::size_t size);
  void alignTo(std::size_t width);
  void writeRaw(const void* bytes, std::size_t count);
  template <class Number>
  void writeNumbers(const std::vector<Number>& numbers);

  Bytes message_;
};

}  // namespace quillbeam
