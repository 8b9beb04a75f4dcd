#pragma once

#include <functional>
#include <string>

#include "base/Weakly.h"
#include "channels/BinaryMessenger.h"
#include "channels/MethodCall.h"

namespace quillbeam {

/// A client's side of an event channel: listens while it exists. Lives on its messenger's queue and goes before it. One
/// per channel and messenger.
class EventSubscription final : private MessageHandler, public WeaklyHeld {
 public:
  struct Listener {
    std::function<void(Value event)> onEvent;
    /// Also when the native side refuses to stream; then, and when it is lost ("CONNECTION_LOST"), `onEnd` follows.
    std::function<void(MethodError error)> onError;
    std::function<void()> onEnd;  ///< nothing follows; the one callback that may destroy the subscription
  };

  EventSubscription(BinaryMessenger& messenger, std::string channel, Listener listener, const Value& arguments = {});
  EventSubscription(const EventSubscription&) = delete;
  EventSubscription& operator=(const EventSubscription&) = delete;
  ~EventSubscription() override;

 private:
  enum class State { listening, ended };

  void handleMessage(PeerId from, ByteSpan message, MessageReply reply) override;
  void handlePeerGone(PeerId peer) override;
  void handleListenReply(Result<Bytes> reply);
  void fail(MethodError error);
  void end();

  BinaryMessenger& messenger_;
  std::string channel_;
  Listener listener_;
  State state_ = State::listening;
};

}  // namespace quillbeam
