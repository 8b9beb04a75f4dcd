#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "base/ByteChain.h"

namespace quillbeam {

/// A box type, four characters as one big-endian number.
enum class BoxType : std::uint32_t {};
constexpr BoxType boxType(std::string_view name) {
  std::uint32_t code = 0;
  for (const char character : name) code = code << 8 | static_cast<std::uint8_t>(character);
  return BoxType{code};
}

/// The start of a box as it lies in a file. Sizes count the header.
struct BoxHeader {
  static constexpr std::size_t maxSize = 16;

  BoxType type{};
  std::uint64_t size = 0;
  std::uint32_t headerSize = 8;

  /// nullopt when the bytes are too few or name an impossible size. A size of zero ("to the end of the file") is
  /// impossible here: nobody of ours writes it, and the zeros of a torn tail look like it.
  static std::optional<BoxHeader> parse(ByteSpan bytes);
};

/// A whole box in memory, seen without copying.
struct BoxView {
  BoxType type{};
  ByteSpan bytes;    ///< header included
  ByteSpan payload;  ///< header excluded
};

/// The boxes that fill `bytes` exactly; nullopt when they don't.
std::optional<std::vector<BoxView>> parseBoxes(ByteSpan bytes);
/// The first of that type, nullopt when there is none.
std::optional<BoxView> findBox(const std::vector<BoxView>& boxes, BoxType type);
/// Descends from the payload `bytes` along `path`, always into the first box of each type.
std::optional<BoxView> findBox(ByteSpan bytes, std::initializer_list<BoxType> path);

/// Reads big-endian numbers. Past the end it answers zeros and `ok` turns false for good, so that a parser may check
/// once, at its end, as long as it bounds its loops by `remaining`.
class BoxReader {
 public:
  explicit BoxReader(ByteSpan bytes) : bytes_(bytes) {}

  std::uint8_t u8() { return static_cast<std::uint8_t>(number(1)); }
  std::uint16_t u16() { return static_cast<std::uint16_t>(number(2)); }
  std::uint32_t u32() { return static_cast<std::uint32_t>(number(4)); }
  std::uint64_t u64() { return number(8); }
  void skip(std::size_t count);

  std::size_t remaining() const { return bytes_.size(); }
  bool ok() const { return ok_; }

 private:
  std::uint64_t number(std::size_t width);
  ByteSpan bytes_;
  bool ok_ = true;
};

/// Writes boxes into one growing buffer; sizes are filled in when a box ends.
class BoxWriter {
 public:
  /// Calls `content(*this)` for what lies inside the box.
  template <class Content>
  void box(BoxType type, Content content) {
    const std::size_t start = begin(type);
    content(*this);
    end(start);
  }
  /// A box that starts with a version and flags.
  template <class Content>
  void fullBox(BoxType type, std::uint8_t version, Content content) {
    const std::size_t start = begin(type);
    u32(static_cast<std::uint32_t>(version) << 24);
    content(*this);
    end(start);
  }

  void u16(std::uint16_t value) { number(value, 2); }
  void u32(std::uint32_t value) { number(value, 4); }
  void u64(std::uint64_t value) { number(value, 8); }
  void raw(ByteSpan bytes) { bytes_.insert(bytes_.end(), bytes.begin(), bytes.end()); }
  void type(BoxType type) { u32(static_cast<std::uint32_t>(type)); }

  std::size_t size() const { return bytes_.size(); }
  Bytes take() { return std::move(bytes_); }

 private:
  std::size_t begin(BoxType type);
  void end(std::size_t start);
  void number(std::uint64_t value, int width);
  Bytes bytes_;
};

}  // namespace quillbeam
