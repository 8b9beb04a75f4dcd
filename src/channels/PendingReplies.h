#pragma once

#include <map>

#include "channels/BinaryMessenger.h"

namespace quillbeam {

/// Who waits for which reply. Ids are never 0 and, within a connection's reach, never reused.
class PendingReplies {
 public:
  std::uint32_t add(PeerId to, BinaryMessenger::ReplyHandler onReply);
  /// Calls the handler; does nothing when this peer owes no such reply.
  void complete(PeerId from, std::uint32_t id, Result<Bytes> reply);
  /// Calls every handler that waits for this peer, oldest first, with `MessengerError::peerGone`.
  void abandon(PeerId peer);

 private:
  struct Pending {
    PeerId to;
    BinaryMessenger::ReplyHandler onReply;
  };
  std::map<std::uint32_t, Pending> pending_;
  std::uint32_t lastId_ = 0;
};

}  // namespace quillbeam
