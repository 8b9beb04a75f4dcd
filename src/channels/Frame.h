#pragma once

#include <cstdint>
#include <string>

#include "base/ByteChain.h"

namespace quillbeam {

enum class FrameKind : std::uint8_t { message = 1, reply = 2 };

/// What travels between two messengers: a message on a channel, or the reply to one.
struct Frame {
  /// In `replyId`: the sender of this message wants no reply.
  static constexpr std::uint32_t noReply = 0;

  FrameKind kind = FrameKind::message;
  std::uint32_t replyId = noReply;
  std::string channel;  ///< empty in a reply
  Bytes message;
  bool operator==(const Frame&) const = default;
};

}  // namespace quillbeam
