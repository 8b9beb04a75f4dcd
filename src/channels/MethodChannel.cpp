#include "channels/MethodChannel.h"

#include <utility>

#include "channels/StandardMethodCodec.h"

namespace quillbeam {

namespace {

Result<MethodReply> decoded(Result<Bytes> reply) {
  TRY(const Bytes message, std::move(reply));
  return StandardMethodCodec::decodeReply(message);
}

}  // namespace

MethodChannel::MethodChannel(BinaryMessenger& messenger, std::string name)
    : messenger_(messenger), name_(std::move(name)) {}

MethodChannel::~MethodChannel() { setCallHandler(nullptr); }

void MethodChannel::setCallHandler(CallHandler handler) {
  const bool handled = handler != nullptr;
  // A channel that only sends must not take the name from one that listens.
  if (handled || handler_) messenger_.setMessageHandler(name_, handled ? this : nullptr);
  handler_ = std::move(handler);
}

void MethodChannel::invoke(std::string_view method, const Value& arguments) {
  messenger_.broadcast(name_, StandardMethodCodec::encodeCall(method, arguments));
}

void MethodChannel::invoke(std::string_view method, const Value& arguments, ReplyHandler onReply) {
  messenger_.send(PeerId::native(), name_, StandardMethodCodec::encodeCall(method, arguments),
                  [onReply = std::move(onReply)](Result<Bytes> reply) mutable { onReply(decoded(std::move(reply))); });
}

void MethodChannel::handleMessage(PeerId, ByteSpan message, MessageReply reply) {
  auto call = StandardMethodCodec::decodeCall(message);
  std::string method = call ? call->method : "";
  MethodResult result(std::move(method), [reply = std::move(reply)](MethodReply answer) mutable {
    reply(StandardMethodCodec::encodeReply(answer));
  });
  if (!call) return result.error("MALFORMED_CALL", call.error().description());
  // A copy, so that the handler may replace itself or drop the channel.
  const CallHandler handler = handler_;
  handler(*std::move(call), std::move(result));
}

}  // namespace quillbeam
