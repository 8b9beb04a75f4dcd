#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "base/ByteChain.h"
#include "base/Result.h"

namespace quillbeam {

/// One party at the other end of a messenger. Seen from the native side these are the connected clients, numbered from
/// 1 and never reused; a client sees one, `PeerId::native()`.
class PeerId {
 public:
  explicit constexpr PeerId(std::uint64_t number) : number_(number) {}
  static constexpr PeerId native() { return PeerId(0); }
  constexpr std::uint64_t number() const { return number_; }
  auto operator<=>(const PeerId&) const = default;

 private:
  std::uint64_t number_;
};

enum class MessengerError {
  peerGone,         ///< there is no such peer, or it vanished before it answered
  messageTooLarge,  ///< beyond `BinaryMessenger::largestMessage`, or its channel's name beyond `longestChannelName`
};
std::string describe(MessengerError error);
constexpr std::string_view errorDomain(MessengerError) { return "MessengerError"; }

/// Answers one message; call it at most once, on the messenger's queue. Does nothing once the peer is gone or when it
/// asked for no reply. An empty reply means that nobody handles the message.
using MessageReply = std::move_only_function<void(Bytes)>;

/// Who handles the messages of one channel.
class MessageHandler {
 public:
  virtual ~MessageHandler() = default;
  /// `message` is valid during the call. Every message must be answered in the end, or its sender waits for ever.
  virtual void handleMessage(PeerId from, ByteSpan message, MessageReply reply) = 0;
  /// Called for every peer that vanishes, whether or not it ever used this channel.
  virtual void handlePeerGone(PeerId) {}
};

/// Carries messages between the native side and the UI's processes, each on a named channel. Both ends have one. All
/// functions are called, and all handlers run, on the messenger's queue; delivery is in order and asynchronous: no
/// handler runs inside a `send`.
class BinaryMessenger {
 public:
  static constexpr std::size_t largestMessage = std::size_t{63} << 20;
  static constexpr std::size_t longestChannelName = 1024;

  virtual ~BinaryMessenger() = default;

  using ReplyHandler = std::move_only_function<void(Result<Bytes>)>;

  /// To every peer; nobody is asked for a reply, nobody is waited for.
  virtual void broadcast(std::string_view channel, Bytes message) = 0;
  /// To one peer. `onReply` is called once: with the reply (empty: not handled), or with a `MessengerError`.
  virtual void send(PeerId to, std::string_view channel, Bytes message, ReplyHandler onReply = nullptr) = 0;
  /// Messages of `channel` go to `handler` from now on; to nobody when it is nullptr. Not owned.
  virtual void setMessageHandler(std::string_view channel, MessageHandler* handler) = 0;
};

}  // namespace quillbeam
