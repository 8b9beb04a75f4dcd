#pragma once

#include <functional>
#include <map>
#include <string>

#include "base/Executor.h"
#include "base/Weakly.h"
#include "channels/BinaryMessenger.h"
#include "channels/Frame.h"
#include "channels/PendingReplies.h"

namespace quillbeam {

/// A messenger over anything that carries frames to peers: it routes messages to handlers, matches replies to those who
/// wait for them, and tells handlers when a peer is gone. Subclasses bring the transport: they announce peers, each
/// with the way to it, and hand in the frames that arrive. Lives on `queue`. Channels go before their messenger.
class FrameMessenger : public BinaryMessenger, public WeaklyHeld {
 public:
  ~FrameMessenger() override;

  void broadcast(std::string_view channel, Bytes message) override;
  void send(PeerId to, std::string_view channel, Bytes message, ReplyHandler onReply = nullptr) override;
  void setMessageHandler(std::string_view channel, MessageHandler* handler) override;

 protected:
  /// Sends a frame on its way; must not deliver anything, or take the peer away, before it returns.
  using Transmit = std::function<void(Frame)>;

  explicit FrameMessenger(Executor& queue) : queue_(queue) {}

  void addPeer(PeerId peer, Transmit transmit);
  /// Handlers learn that the peer is gone, those who wait for its replies get the error.
  void removePeer(PeerId peer);
  void receive(PeerId from, Frame frame);
  Executor& queue() const { return queue_; }

 private:
  void deliver(PeerId from, const Frame& frame);
  void reply(PeerId to, std::uint32_t replyId, Bytes message);
  void refuse(ReplyHandler onReply, MessengerError error);

  Executor& queue_;
  std::map<PeerId, Transmit> peers_;
  std::map<std::string, MessageHandler*, std::less<>> handlers_;
  PendingReplies pending_;
};

}  // namespace quillbeam
