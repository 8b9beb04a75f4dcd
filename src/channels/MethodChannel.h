#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "channels/BinaryMessenger.h"
#include "channels/MethodCall.h"
#include "channels/MethodResult.h"

namespace quillbeam {

/// Method calls on one named channel, in either direction. Lives on its messenger's queue and goes before it.
class MethodChannel final : private MessageHandler {
 public:
  /// Answers the call through `result`, at once or later.
  using CallHandler = std::function<void(MethodCall call, MethodResult result)>;
  /// Errors: `MessengerError`s, and `CommonError::malformedData` when the reply is not one.
  using ReplyHandler = std::move_only_function<void(Result<MethodReply>)>;

  MethodChannel(BinaryMessenger& messenger, std::string name);
  MethodChannel(const MethodChannel&) = delete;
  MethodChannel& operator=(const MethodChannel&) = delete;
  ~MethodChannel() override;

  const std::string& name() const { return name_; }

  /// Calls that arrive go to `handler`. Without one they are answered with not implemented; a message that is no call
  /// gets the error "MALFORMED_CALL".
  void setCallHandler(CallHandler handler);

  /// Calls every peer; nobody's answer is waited for.
  void invoke(std::string_view method, const Value& arguments = {});
  /// For clients: calls the native side and hands its answer to `onReply`, once.
  void invoke(std::string_view method, const Value& arguments, ReplyHandler onReply);

 private:
  void handleMessage(PeerId from, ByteSpan message, MessageReply reply) override;

  BinaryMessenger& messenger_;
  std::string name_;
  CallHandler handler_;
};

}  // namespace quillbeam
