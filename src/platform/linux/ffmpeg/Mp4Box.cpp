#include "platform/linux/ffmpeg/Mp4Box.h"

#include "base/Check.h"

namespace quillbeam {

std::optional<BoxHeader> BoxHeader::parse(ByteSpan bytes) {
  BoxReader reader(bytes);
  BoxHeader header;
  header.size = reader.u32();
  header.type = BoxType{reader.u32()};
  if (header.size == 1) {
    header.size = reader.u64();
    header.headerSize = 16;
  }
  if (!reader.ok() || header.size < header.headerSize) return std::nullopt;
  return header;
}

std::optional<std::vector<BoxView>> parseBoxes(ByteSpan bytes) {
  std::vector<BoxView> boxes;
  while (!bytes.empty()) {
    const auto header = BoxHeader::parse(bytes);
    if (!header || header->size > bytes.size()) return std::nullopt;
    const ByteSpan whole = bytes.first(header->size);
    boxes.push_back({header->type, whole, whole.subspan(header->headerSize)});
    bytes = bytes.subspan(header->size);
  }
  return boxes;
}

std::optional<BoxView> findBox(const std::vector<BoxView>& boxes, BoxType type) {
  for (const BoxView& box : boxes) {
    if (box.type == type) return box;
  }
  return std::nullopt;
}

std::optional<BoxView> findBox(ByteSpan bytes, std::initializer_list<BoxType> path) {
  std::optional<BoxView> found;
  for (const BoxType type : path) {
    const auto boxes = parseBoxes(bytes);
    if (!boxes) return std::nullopt;
    found = findBox(*boxes, type);
    if (!found) return std::nullopt;
    bytes = found->payload;
  }
  return found;
}

void BoxReader::skip(std::size_t count) {
  if (count > bytes_.size()) {
    ok_ = false;
    count = bytes_.size();
  }
  bytes_ = bytes_.subspan(count);
}

std::uint64_t BoxReader::number(std::size_t width) {
  if (width > bytes_.size()) {
    ok_ = false;
    bytes_ = {};
    return 0;
  }
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < width; ++i) value = value << 8 | bytes_[i];
  bytes_ = bytes_.subspan(width);
  return value;
}

std::size_t BoxWriter::begin(BoxType boxType) {
  const std::size_t start = bytes_.size();
  u32(0);
  type(boxType);
  return start;
}

void BoxWriter::end(std::size_t start) {
  const std::size_t size = bytes_.size() - start;
  QB_CHECK(size <= 0xFFFF'FFFF);
  for (int i = 0; i < 4; ++i) bytes_[start + i] = static_cast<std::uint8_t>(size >> (24 - 8 * i));
}

void BoxWriter::number(std::uint64_t value, int width) {
  for (int shift = 8 * (width - 1); shift >= 0; shift -= 8) bytes_.push_back(static_cast<std::uint8_t>(value >> shift));
}

}  // namespace quillbeam
