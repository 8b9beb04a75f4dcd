#include "channels/FrameMessenger.h"

#include <utility>
#include <vector>

#include "channels/MethodCall.h"
#include "channels/StandardMethodCodec.h"

namespace quillbeam {

namespace {

bool fitsAFrame(std::string_view channel, const Bytes& message) {
  return channel.size() <= BinaryMessenger::longestChannelName && message.size() <= BinaryMessenger::largestMessage;
}

}  // namespace

FrameMessenger::~FrameMessenger() {
  // No peer is left to send to when those who wait hear of it.
  for (const auto& [peer, transmit] : std::exchange(peers_, {})) pending_.abandon(peer);
}

void FrameMessenger::broadcast(std::string_view channel, Bytes message) {
  queue_.assertCurrent();
  if (!fitsAFrame(channel, message)) return;
  for (const auto& [peer, transmit] : peers_) {
    transmit({FrameKind::message, Frame::noReply, std::string(channel), message});
  }
}

void FrameMessenger::send(PeerId to, std::string_view channel, Bytes message, ReplyHandler onReply) {
  queue_.assertCurrent();
  const auto peer = peers_.find(to);
  if (peer == peers_.end()) return refuse(std::move(onReply), MessengerError::peerGone);
  if (!fitsAFrame(channel, message)) return refuse(std::move(onReply), MessengerError::messageTooLarge);
  const std::uint32_t replyId = onReply ? pending_.add(to, std::move(onReply)) : Frame::noReply;
  peer->second({FrameKind::message, replyId, std::string(channel), std::move(message)});
}

void FrameMessenger::refuse(ReplyHandler onReply, MessengerError error) {
  if (!onReply) return;
  queue_.async([onReply = std::move(onReply), error]() mutable { onReply(error); });
}

void FrameMessenger::setMessageHandler(std::string_view channel, MessageHandler* handler) {
  if (handler != nullptr) {
    handlers_.insert_or_assign(std::string(channel), handler);
  } else if (const auto found = handlers_.find(channel); found != handlers_.end()) {
    handlers_.erase(found);
  }
}

void FrameMessenger::addPeer(PeerId peer, Transmit transmit) { peers_.insert_or_assign(peer, std::move(transmit)); }

void FrameMessenger::removePeer(PeerId peer) {
  if (peers_.erase(peer) == 0) return;
  std::vector<std::string> channels;
  for (const auto& [channel, handler] : handlers_) channels.push_back(channel);
  // Looked up one by one: a handler that hears of it may set or drop others.
  for (const std::string& channel : channels) {
    if (const auto found = handlers_.find(channel); found != handlers_.end()) found->second->handlePeerGone(peer);
  }
  pending_.abandon(peer);
}

void FrameMessenger::receive(PeerId from, Frame frame) {
  queue_.assertCurrent();
  switch (frame.kind) {
    case FrameKind::message:
      return deliver(from, frame);
    case FrameKind::reply:
      return pending_.complete(from, frame.replyId, std::move(frame.message));
  }
}

void FrameMessenger::deliver(PeerId from, const Frame& frame) {
  MessageReply answer = weakly(this, [from, id = frame.replyId](FrameMessenger& self, Bytes message) {
    self.reply(from, id, std::move(message));
  });
  const auto found = handlers_.find(frame.channel);
  if (found == handlers_.end()) return answer({});
  found->second->handleMessage(from, frame.message, std::move(answer));
}

void FrameMessenger::reply(PeerId to, std::uint32_t replyId, Bytes message) {
  queue_.assertCurrent();
  const auto peer = peers_.find(to);
  if (replyId == Frame::noReply || peer == peers_.end()) return;
  if (message.size() > largestMessage) {
    message =
        StandardMethodCodec::encodeReply(MethodError{"REPLY_TOO_LARGE", "The reply is too large to be sent", nullptr});
  }
  peer->second({FrameKind::reply, replyId, {}, std::move(message)});
}

}  // namespace quillbeam
