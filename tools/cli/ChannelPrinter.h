#pragma once

#include <functional>
#include <string>

#include "channels/BinaryMessenger.h"

namespace quillbeam::cli {

/// Prints what arrives on one channel, a JSON line each: {"channel", "method" or "event", "arguments"}. Lives on its
/// messenger's queue and goes before it.
class ChannelPrinter final : private MessageHandler {
 public:
  enum class Direction { callsFromNative, unknown };

  /// An event channel is asked to stream, unless the channel is known to be none. `onEnd` runs when nothing more will
  /// come or nobody reads what is printed.
  ChannelPrinter(BinaryMessenger& messenger, std::string channel, Direction direction,
                 std::function<void(Error)> onEnd);
  ~ChannelPrinter() override;

 private:
  void handleMessage(PeerId from, ByteSpan message, MessageReply reply) override;
  void handlePeerGone(PeerId peer) override;

  BinaryMessenger& messenger_;
  const std::string channel_;
  std::function<void(Error)> onEnd_;
};

/// The line for one message: a method call, an event of a stream, or the stream's error or end.
std::string printedMessage(const std::string& channel, ByteSpan message);

}  // namespace quillbeam::cli
