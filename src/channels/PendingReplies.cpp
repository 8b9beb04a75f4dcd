#include "channels/PendingReplies.h"

#include <algorithm>
#include <utility>

namespace quillbeam {

std::uint32_t PendingReplies::add(PeerId to, BinaryMessenger::ReplyHandler onReply) {
  do {
    ++lastId_;
  } while (lastId_ == 0 || pending_.contains(lastId_));
  pending_.emplace(lastId_, Pending{to, std::move(onReply)});
  return lastId_;
}

void PendingReplies::complete(PeerId from, std::uint32_t id, Result<Bytes> reply) {
  const auto found = pending_.find(id);
  if (found == pending_.end() || found->second.to != from) return;
  // Out of the map first: the handler may ask again, or drop the whole messenger.
  BinaryMessenger::ReplyHandler onReply = std::move(found->second.onReply);
  pending_.erase(found);
  onReply(std::move(reply));
}

void PendingReplies::abandon(PeerId peer) {
  std::vector<BinaryMessenger::ReplyHandler> abandoned;
  for (auto& [id, pending] : pending_) {
    if (pending.to == peer) abandoned.push_back(std::move(pending.onReply));
  }
  std::erase_if(pending_, [&](const auto& entry) { return entry.second.to == peer; });
  for (auto& onReply : abandoned) onReply(MessengerError::peerGone);
}

}  // namespace quillbeam
