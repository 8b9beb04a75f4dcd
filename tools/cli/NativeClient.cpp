#include "cli/NativeClient.h"

#include "base/Completion.h"
#include "channels/MethodChannel.h"

namespace quillbeam::cli {

Result<std::unique_ptr<NativeClient>> NativeClient::connect(Platform& platform, const Path& socketPath) {
  TRY(auto messenger, SocketMessengerClient::connect(platform.localSockets, socketPath, platform.dispatch.main()));
  return std::unique_ptr<NativeClient>(new NativeClient(std::move(messenger)));
}

Task<MethodReply> NativeClient::call(std::string channel, std::string method, Value arguments) {
  MethodChannel methods(*messenger_, std::move(channel));
  co_return co_await completed<MethodReply>([&](Completion<MethodReply> done) {
    methods.invoke(method, arguments, [done](Result<MethodReply> reply) { done(std::move(reply)); });
  });
}

Task<Value> NativeClient::ask(std::string_view channel, std::string method, Value arguments) {
  std::string name(channel);
  CO_TRY(auto reply, co_await call(std::move(name), std::move(method), std::move(arguments)));
  if (const auto* error = std::get_if<MethodError>(&reply)) {
    co_return Error("MethodError", 0, error->message.value_or(error->code));
  }
  if (std::holds_alternative<NotImplemented>(reply)) co_return CommonError::unsupported;
  co_return std::get<Value>(std::move(reply));
}

}  // namespace quillbeam::cli
