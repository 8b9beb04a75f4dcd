#include "app/NativeNotificationChannel.h"

#include "app/ChannelNames.h"
#include "channels/Arguments.h"
#include "channels/MethodTable.h"

namespace quillbeam {

NativeNotificationChannel::NativeNotificationChannel(BinaryMessenger& messenger, AppDelegate& appDelegate,
                                                     const Logger& logger)
    : appDelegate_(appDelegate), channel_(messenger, std::string(channel_names::nativeNotification)) {
  static const MethodTable<NativeNotificationChannel> methods = {
      {"showNotification", &NativeNotificationChannel::showNotification},
  };
  channel_.setCallHandler([this, &logger](MethodCall call, MethodResult result) {
    logger.info("🔔 macOS: Native notification method called: " + call.method);
    methods.dispatch(*this, std::move(call), std::move(result));
  });
}

void NativeNotificationChannel::showNotification(Value arguments, MethodResult result) {
  const auto title = Arguments(arguments).string("title");
  const auto body = Arguments(arguments).string("body");
  if (!title || !body) return result.error("INVALID_ARGUMENTS", "Title and body required");
  appDelegate_.showNativeNotification(*title, *body);
  result.success();
}

}  // namespace quillbeam
