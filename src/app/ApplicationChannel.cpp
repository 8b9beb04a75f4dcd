#include "app/ApplicationChannel.h"

#include "app/ChannelNames.h"
#include "channels/MethodTable.h"

namespace quillbeam {

ApplicationChannel::ApplicationChannel(BinaryMessenger& messenger, AppDelegate& appDelegate)
    : appDelegate_(appDelegate), channel_(messenger, std::string(channel_names::application)) {
  static const MethodTable<ApplicationChannel> methods = {{"reopen", &ApplicationChannel::reopen}};
  channel_.setCallHandler(
      [this](MethodCall call, MethodResult result) { methods.dispatch(*this, std::move(call), std::move(result)); });
}

void ApplicationChannel::reopen(Value, MethodResult result) {
  result.success(appDelegate_.applicationShouldHandleReopen() == AppDelegate::Reopened::mainWindowShown);
}

}  // namespace quillbeam
