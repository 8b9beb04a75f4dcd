#include "channels/EventSubscription.h"

#include <memory>
#include <utility>

#include "channels/StandardMethodCodec.h"

namespace quillbeam {

namespace {

MethodError connectionLost(const std::string& description) { return {"CONNECTION_LOST", description, nullptr}; }

}  // namespace

EventSubscription::EventSubscription(BinaryMessenger& messenger, std::string channel, Listener listener,
                                     const Value& arguments)
    : messenger_(messenger), channel_(std::move(channel)), listener_(std::move(listener)) {
  messenger_.setMessageHandler(channel_, this);
  messenger_.send(
      PeerId::native(), channel_, StandardMethodCodec::encodeCall("listen", arguments),
      weakly(this, [](EventSubscription& self, Result<Bytes> reply) { self.handleListenReply(std::move(reply)); }));
}

EventSubscription::~EventSubscription() {
  messenger_.setMessageHandler(channel_, nullptr);
  if (state_ == State::listening) {
    messenger_.send(PeerId::native(), channel_, StandardMethodCodec::encodeCall("cancel", nullptr));
  }
}

void EventSubscription::handleListenReply(Result<Bytes> reply) {
  if (!reply) return fail(connectionLost(reply.error().description()));
  auto answer = StandardMethodCodec::decodeReply(*reply);
  if (!answer) return fail({"MALFORMED_REPLY", answer.error().description(), nullptr});
  if (auto* error = std::get_if<MethodError>(&*answer)) return fail(std::move(*error));
  if (std::holds_alternative<NotImplemented>(*answer)) fail({"NOT_IMPLEMENTED", "Nothing streams here", nullptr});
}

void EventSubscription::handleMessage(PeerId, ByteSpan message, MessageReply reply) {
  reply({});
  if (state_ == State::ended) return;
  auto event = StandardMethodCodec::decodeReply(message);
  if (!event) return listener_.onError({"MALFORMED_EVENT", event.error().description(), nullptr});
  if (auto* error = std::get_if<MethodError>(&*event)) return listener_.onError(std::move(*error));
  if (auto* value = std::get_if<Value>(&*event)) return listener_.onEvent(std::move(*value));
  end();
}

void EventSubscription::handlePeerGone(PeerId) { fail(connectionLost(describe(MessengerError::peerGone))); }

void EventSubscription::fail(MethodError error) {
  if (state_ == State::ended) return;
  listener_.onError(std::move(error));
  end();
}

void EventSubscription::end() {
  state_ = State::ended;
  // A copy: the listener may destroy the subscription.
  const auto onEnd = listener_.onEnd;
  onEnd();
}

}  // namespace quillbeam
