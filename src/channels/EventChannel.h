#pragma once

#include <memory>
#include <set>
#include <string>

#include "channels/BinaryMessenger.h"
#include "channels/MethodCall.h"
#include "channels/StreamHandler.h"

namespace quillbeam {

/// The native side of a stream of events on a named channel. Clients call "listen" and "cancel" on it; each event goes
/// to all that listen.
///
///     idle ──first listen, handler agrees──► streaming ──last listener cancels or vanishes──► idle (onCancel)
///                                            streaming ──endOfStream─────────────────────────► idle
///
/// Later listeners join the running stream; their arguments are not looked at. Listening twice or cancelling without
/// listening succeeds and changes nothing. Lives on its messenger's queue and goes before it; destroying it while it
/// streams cancels the stream.
class EventChannel final : private MessageHandler {
 public:
  /// `handler` outlives the channel.
  EventChannel(BinaryMessenger& messenger, std::string name, StreamHandler& handler);
  EventChannel(const EventChannel&) = delete;
  EventChannel& operator=(const EventChannel&) = delete;
  ~EventChannel() override;

  const std::string& name() const { return name_; }

 private:
  friend class EventSink;

  void handleMessage(PeerId from, ByteSpan message, MessageReply reply) override;
  void handlePeerGone(PeerId peer) override { removeListener(peer); }
  MethodReply answer(PeerId from, ByteSpan message);
  MethodReply addListener(PeerId peer, const Value& arguments);
  void removeListener(PeerId peer);
  void emit(const Bytes& event);
  void endStream();

  BinaryMessenger& messenger_;
  std::string name_;
  StreamHandler& handler_;
  std::set<PeerId> listeners_;
  std::shared_ptr<EventSink::Stream> stream_;  ///< set while streaming; sinks hold it weakly
};

}  // namespace quillbeam
