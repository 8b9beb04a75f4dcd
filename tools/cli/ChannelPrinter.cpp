#include "cli/ChannelPrinter.h"

#include "base/Json.h"
#include "channels/StandardMethodCodec.h"
#include "cli/Messages.h"

namespace quillbeam::cli {

namespace {

ValueMap described(const MethodReply& event) {
  if (const auto* error = std::get_if<MethodError>(&event)) {
    return {{"event", "error"},
            {"arguments", ValueMap{{"code", error->code}, {"message", error->message}, {"details", error->details}}}};
  }
  if (const auto* value = std::get_if<Value>(&event)) return {{"event", "value"}, {"arguments", *value}};
  return {{"event", "end"}, {"arguments", nullptr}};
}

ValueMap described(ByteSpan message) {
  if (auto call = StandardMethodCodec::decodeCall(message)) {
    return {{"method", std::move(call->method)}, {"arguments", std::move(call->arguments)}};
  }
  if (const auto event = StandardMethodCodec::decodeReply(message)) return described(*event);
  return {{"event", "malformed"}, {"arguments", nullptr}};
}

}  // namespace

std::string printedMessage(const std::string& channel, ByteSpan message) {
  ValueMap line{{"channel", channel}};
  for (const auto& [key, value] : described(message)) line.set(key, value);
  return toJson(line).value_or("{\"channel\":\"" + channel + "\",\"event\":\"unprintable\",\"arguments\":null}");
}

ChannelPrinter::ChannelPrinter(BinaryMessenger& messenger, std::string channel, Direction direction,
                               std::function<void(Error)> onEnd)
    : messenger_(messenger), channel_(std::move(channel)), onEnd_(std::move(onEnd)) {
  messenger_.setMessageHandler(channel_, this);
  if (direction == Direction::callsFromNative) return;
  messenger_.send(PeerId::native(), channel_, StandardMethodCodec::encodeCall("listen", nullptr));
}

ChannelPrinter::~ChannelPrinter() { messenger_.setMessageHandler(channel_, nullptr); }

void ChannelPrinter::handleMessage(PeerId, ByteSpan message, MessageReply reply) {
  reply({});
  if (!printLine(printedMessage(channel_, message))) onEnd_(CommonError::cancelled);
}

void ChannelPrinter::handlePeerGone(PeerId) { onEnd_(MessengerError::peerGone); }

}  // namespace quillbeam::cli
