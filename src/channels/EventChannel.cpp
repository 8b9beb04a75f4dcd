#include "channels/EventChannel.h"

#include <utility>

#include "channels/StandardMethodCodec.h"

namespace quillbeam {

void EventSink::success(const Value& event) const {
  if (const auto stream = stream_.lock()) stream->channel.emit(StandardMethodCodec::encodeReply(event));
}

void EventSink::error(std::string code, std::optional<std::string> message, Value details) const {
  const auto stream = stream_.lock();
  if (!stream) return;
  stream->channel.emit(
      StandardMethodCodec::encodeReply(MethodError{std::move(code), std::move(message), std::move(details)}));
}

void EventSink::endOfStream() const {
  if (const auto stream = stream_.lock()) stream->channel.endStream();
}

EventChannel::EventChannel(BinaryMessenger& messenger, std::string name, StreamHandler& handler)
    : messenger_(messenger), name_(std::move(name)), handler_(handler) {
  messenger_.setMessageHandler(name_, this);
}

EventChannel::~EventChannel() {
  messenger_.setMessageHandler(name_, nullptr);
  if (std::exchange(stream_, nullptr)) handler_.onCancel();
}

void EventChannel::handleMessage(PeerId from, ByteSpan message, MessageReply reply) {
  reply(StandardMethodCodec::encodeReply(answer(from, message)));
}

MethodReply EventChannel::answer(PeerId from, ByteSpan message) {
  const auto call = StandardMethodCodec::decodeCall(message);
  if (!call) return MethodError{"MALFORMED_CALL", call.error().description(), nullptr};
  if (call->method == "listen") return addListener(from, call->arguments);
  if (call->method != "cancel") return NotImplemented();
  removeListener(from);
  return Value();
}

MethodReply EventChannel::addListener(PeerId peer, const Value& arguments) {
  // Before the handler starts: it may emit, or end the stream, right away.
  listeners_.insert(peer);
  if (stream_) return Value();
  stream_ = std::make_shared<EventSink::Stream>(EventSink::Stream{*this});
  auto error = handler_.onListen(arguments, EventSink(stream_));
  if (!error) return Value();
  listeners_.clear();
  stream_.reset();
  return *std::move(error);
}

void EventChannel::removeListener(PeerId peer) {
  listeners_.erase(peer);
  if (listeners_.empty() && std::exchange(stream_, nullptr)) handler_.onCancel();
}

void EventChannel::emit(const Bytes& event) {
  for (const PeerId listener : listeners_) messenger_.send(listener, name_, event);
}

void EventChannel::endStream() {
  stream_.reset();
  emit({});
  listeners_.clear();
}

}  // namespace quillbeam
