#include "channels/StandardCodecWriter.h"

#include <bit>
#include <cstdint>
#include <limits>
#include <variant>

#include "base/Check.h"
#include "base/Utf8.h"
#include "channels/StandardTypes.h"

namespace quillbeam {

static_assert(std::endian::native == std::endian::little, "numbers are copied as they lie in memory");

namespace {

constexpr std::uint8_t byteOf(StandardType type) { return static_cast<std::uint8_t>(type); }

}  // namespace

void StandardCodecWriter::writeValue(const Value& value) {
  std::visit([this](const auto& alternative) { put(alternative); }, value.variant());
}

void StandardCodecWriter::put(std::monostate) { writeByte(byteOf(StandardType::nil)); }

void StandardCodecWriter::put(bool flag) { writeByte(byteOf(flag ? StandardType::yes : StandardType::no)); }

void StandardCodecWriter::put(std::int32_t number) {
  writeByte(byteOf(StandardType::int32));
  writeRaw(&number, sizeof(number));
}

void StandardCodecWriter::put(std::int64_t number) {
  writeByte(byteOf(StandardType::int64));
  writeRaw(&number, sizeof(number));
}

void StandardCodecWriter::put(double number) {
  writeByte(byteOf(StandardType::float64));
  alignTo(sizeof(number));
  writeRaw(&number, sizeof(number));
}

void StandardCodecWriter::put(const std::string& text) {
  if (!isUtf8(text)) return put(replacingBadUtf8(text));
  writeByte(byteOf(StandardType::string));
  writeSize(text.size());
  writeRaw(text.data(), text.size());
}

void StandardCodecWriter::put(const Value::Bytes& bytes) {
  writeByte(byteOf(StandardType::uint8List));
  writeNumbers(bytes);
}

void StandardCodecWriter::put(const Value::Ints32& numbers) {
  writeByte(byteOf(StandardType::int32List));
  writeNumbers(numbers);
}

void StandardCodecWriter::put(const Value::Ints64& numbers) {
  writeByte(byteOf(StandardType::int64List));
  writeNumbers(numbers);
}

void StandardCodecWriter::put(const Value::Floats32& numbers) {
  writeByte(byteOf(StandardType::float32List));
  writeNumbers(numbers);
}

void StandardCodecWriter::put(const Value::Floats64& numbers) {
  writeByte(byteOf(StandardType::float64List));
  writeNumbers(numbers);
}

void StandardCodecWriter::put(const ValueList& list) {
  writeByte(byteOf(StandardType::list));
  writeSize(list.size());
  for (const Value& item : list) writeValue(item);
}

void StandardCodecWriter::put(const ValueMap& map) {
  writeByte(byteOf(StandardType::map));
  writeSize(map.size());
  for (const auto& [key, value] : map) {
    writeValue(key);
    writeValue(value);
  }
}

template <class Number>
void StandardCodecWriter::writeNumbers(const std::vector<Number>& numbers) {
  writeSize(numbers.size());
  alignTo(sizeof(Number));
  writeRaw(numbers.data(), numbers.size() * sizeof(Number));
}

void StandardCodecWriter::writeSize(std::size_t size) {
  QB_CHECK(size <= std::numeric_limits<std::uint32_t>::max());
  if (size < sizeFollowsIn16Bits) return writeByte(static_cast<std::uint8_t>(size));
  if (size <= std::numeric_limits<std::uint16_t>::max()) {
    writeByte(sizeFollowsIn16Bits);
    return writeRaw(&size, sizeof(std::uint16_t));
  }
  writeByte(sizeFollowsIn32Bits);
  writeRaw(&size, sizeof(std::uint32_t));
}

void StandardCodecWriter::alignTo(std::size_t width) {
  const std::size_t past = message_.size() % width;
  if (past != 0) message_.resize(message_.size() + width - past);
}

void StandardCodecWriter::writeRaw(const void* bytes, std::size_t count) {
  const auto* first = static_cast<const std::uint8_t*>(bytes);
  message_.insert(message_.end(), first, first + count);
}

}  // namespace quillbeam
