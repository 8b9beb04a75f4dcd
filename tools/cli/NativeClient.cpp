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

}  // namespace quillbeam::cli
