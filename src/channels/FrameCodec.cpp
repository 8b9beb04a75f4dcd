#include "channels/FrameCodec.h"

#include <cstring>
#include <limits>
#include <utility>

#include "base/Utf8.h"
#include "channels/BinaryMessenger.h"

namespace quillbeam {

namespace {

constexpr std::size_t lengthSize = 4;
/// Kind, reply id, length of the channel's name.
constexpr std::size_t headSize = 1 + 4 + 2;

static_assert(headSize + BinaryMessenger::longestChannelName + BinaryMessenger::largestMessage <=
              FrameCodec::largestFrame);

template <class Number>
void append(Bytes& bytes, Number number) {
  const auto* raw = reinterpret_cast<const std::uint8_t*>(&number);
  bytes.insert(bytes.end(), raw, raw + sizeof(number));
}

template <class Number>
Number take(ByteSpan& bytes) {
  Number number;
  std::memcpy(&number, bytes.data(), sizeof(number));
  bytes = bytes.subspan(sizeof(number));
  return number;
}

bool isFrameKind(std::uint8_t kind) {
  switch (static_cast<FrameKind>(kind)) {
    case FrameKind::message:
    case FrameKind::reply:
      return true;
  }
  return false;
}

}  // namespace

std::string describe(FrameError error) {
  switch (error) {
    case FrameError::oversized:
      return "A frame is larger than frames may be";
    case FrameError::malformed:
      return "What arrived is not a frame";
  }
  std::unreachable();
}

Result<ByteChain> FrameCodec::encode(Frame frame) {
  const std::size_t length = headSize + frame.channel.size() + frame.message.size();
  if (length > largestFrame || frame.channel.size() > BinaryMessenger::longestChannelName) return FrameError::oversized;
  Bytes head;
  head.reserve(lengthSize + headSize + frame.channel.size());
  append(head, static_cast<std::uint32_t>(length));
  append(head, static_cast<std::uint8_t>(frame.kind));
  append(head, frame.replyId);
  append(head, static_cast<std::uint16_t>(frame.channel.size()));
  head.insert(head.end(), frame.channel.begin(), frame.channel.end());
  ByteChain bytes(std::move(head));
  bytes.append(std::move(frame.message));
  return bytes;
}

void FrameReader::append(ByteSpan bytes) {
  discardRead();
  stored_.insert(stored_.end(), bytes.begin(), bytes.end());
}

void FrameReader::discardRead() {
  if (read_ == stored_.size()) {
    // What a large frame needed is given back.
    constexpr std::size_t keptCapacity = 256 * 1024;
    if (stored_.capacity() > keptCapacity) stored_ = Bytes();
    stored_.clear();
  } else {
    stored_.erase(stored_.begin(), stored_.begin() + static_cast<std::ptrdiff_t>(read_));
  }
  read_ = 0;
}

Result<std::optional<Frame>> FrameReader::next() {
  if (fault_) return *fault_;
  ByteSpan unread = ByteSpan(stored_).subspan(read_);
  if (unread.size() < lengthSize) return std::optional<Frame>();
  const auto length = take<std::uint32_t>(unread);
  if (length > FrameCodec::largestFrame || length < headSize) {
    fault_ = length < headSize ? FrameError::malformed : FrameError::oversized;
    return *fault_;
  }
  if (unread.size() < length) return std::optional<Frame>();
  std::optional<Frame> frame = parse(unread.first(length));
  if (!frame) {
    fault_ = FrameError::malformed;
    return *fault_;
  }
  read_ += lengthSize + length;
  return frame;
}

std::optional<Frame> FrameReader::parse(ByteSpan body) {
  const auto kind = take<std::uint8_t>(body);
  const auto replyId = take<std::uint32_t>(body);
  const auto nameLength = take<std::uint16_t>(body);
  if (!isFrameKind(kind) || nameLength > body.size() || nameLength > BinaryMessenger::longestChannelName) {
    return std::nullopt;
  }
  const ByteSpan name = body.first(nameLength);
  const ByteSpan message = body.subspan(nameLength);
  std::string channel(name.begin(), name.end());
  if (!isUtf8(channel)) return std::nullopt;
  return Frame{static_cast<FrameKind>(kind), replyId, std::move(channel), Bytes(message.begin(), message.end())};
}

}  // namespace quillbeam
