#include "channels/StandardCodecReader.h"

#include <cstring>
#include <utility>

#include "base/Utf8.h"
#include "channels/StandardTypes.h"

namespace quillbeam {

namespace {

constexpr std::size_t deepestNesting = 128;
/// A byte on the wire can become a whole Value in memory; typed lists, which count once, carry bulk.
constexpr std::size_t mostValues = 1'000'000;

}  // namespace

Error StandardCodecReader::malformed(std::string_view what) const {
  return Error(CommonError::malformedData)
      .withDescription("The message is malformed at byte " + std::to_string(position_) + ": " + std::string(what));
}

Result<ByteSpan> StandardCodecReader::readRaw(std::size_t count) {
  if (count > message_.size() - position_) return malformed("it ends too early");
  const ByteSpan bytes = message_.subspan(position_, count);
  position_ += count;
  return bytes;
}

Result<std::uint8_t> StandardCodecReader::readByte() { return readNumber<std::uint8_t>(); }

Result<void> StandardCodecReader::alignTo(std::size_t width) {
  const std::size_t past = position_ % width;
  if (past != 0) TRY_VOID(readRaw(width - past));
  return success;
}

template <class Number>
Result<Number> StandardCodecReader::readNumber() {
  TRY(const ByteSpan bytes, readRaw(sizeof(Number)));
  Number number;
  std::memcpy(&number, bytes.data(), sizeof(number));
  return number;
}

Result<std::size_t> StandardCodecReader::readSize() {
  TRY(const std::uint8_t first, readByte());
  if (first == sizeFollowsIn16Bits) return readNumber<std::uint16_t>();
  if (first == sizeFollowsIn32Bits) return readNumber<std::uint32_t>();
  return first;
}

Result<std::string> StandardCodecReader::readText() {
  TRY(const std::size_t size, readSize());
  TRY(const ByteSpan bytes, readRaw(size));
  std::string text(bytes.begin(), bytes.end());
  if (!isUtf8(text)) return malformed("the text before is not UTF-8");
  return text;
}

template <class Number>
Result<Value> StandardCodecReader::readNumbers() {
  TRY(const std::size_t count, readSize());
  TRY_VOID(alignTo(sizeof(Number)));
  TRY(const ByteSpan bytes, readRaw(count * sizeof(Number)));
  std::vector<Number> numbers(count);
  if (count > 0) std::memcpy(numbers.data(), bytes.data(), bytes.size());
  return Value(std::move(numbers));
}

Result<Value> StandardCodecReader::readList() {
  TRY(const std::size_t count, readSize());
  ValueList list;
  for (std::size_t i = 0; i < count; ++i) {
    TRY(Value item, readValue());
    list.push_back(std::move(item));
  }
  return Value(std::move(list));
}

Result<Value> StandardCodecReader::readMap() {
  TRY(const std::size_t count, readSize());
  ValueMap map;
  for (std::size_t i = 0; i < count; ++i) {
    TRY(Value key, readValue());
    TRY(Value value, readValue());
    map.append(std::move(key), std::move(value));
  }
  if (map.hasRepeatedKeys()) return malformed("the map before holds a key twice");
  return Value(std::move(map));
}

template <class T>
Result<Value> StandardCodecReader::asValue(Result<T> content) {
  TRY(T value, std::move(content));
  return Value(std::move(value));
}

Result<Value> StandardCodecReader::readNested(Result<Value> (StandardCodecReader::*read)()) {
  if (depth_ == deepestNesting) return malformed("it is nested too deeply");
  ++depth_;
  auto value = (this->*read)();
  --depth_;
  return value;
}

Result<Value> StandardCodecReader::readValue() {
  if (++values_ > mostValues) return malformed("it holds too many values");
  TRY(const std::uint8_t type, readByte());
  switch (static_cast<StandardType>(type)) {
    case StandardType::nil:
      return Value();
    case StandardType::yes:
      return Value(true);
    case StandardType::no:
      return Value(false);
    case StandardType::int32:
      return asValue(readNumber<std::int32_t>());
    case StandardType::int64:
      return asValue(readNumber<std::int64_t>());
    case StandardType::float64:
      TRY_VOID(alignTo(sizeof(double)));
      return asValue(readNumber<double>());
    case StandardType::largeInteger:
    case StandardType::string:
      return asValue(readText());
    case StandardType::uint8List:
      return readNumbers<std::uint8_t>();
    case StandardType::int32List:
      return readNumbers<std::int32_t>();
    case StandardType::int64List:
      return readNumbers<std::int64_t>();
    case StandardType::float64List:
      return readNumbers<double>();
    case StandardType::float32List:
      return readNumbers<float>();
    case StandardType::list:
      return readNested(&StandardCodecReader::readList);
    case StandardType::map:
      return readNested(&StandardCodecReader::readMap);
  }
  return malformed("there is no value of type " + std::to_string(type));
}

}  // namespace quillbeam
