#include "app/WindowControlChannel.h"

#include "app/ChannelNames.h"
#include "app/MainFlutterWindow.h"
#include "base/Text.h"
#include "channels/MethodTable.h"

namespace quillbeam {

WindowControlChannel::WindowControlChannel(BinaryMessenger& messenger, MainFlutterWindow& window, const Logger& logger)
    : window_(window), logger_(logger), channel_(messenger, std::string(channel_names::windowControl)) {
  static const MethodTable<WindowControlChannel> methods = {
      {"showWindow", &WindowControlChannel::showWindow},
      {"hideWindow", &WindowControlChannel::hideWindow},
      {"updateWindowVisibility", &WindowControlChannel::updateWindowVisibility},
  };
  channel_.setCallHandler(
      [this](MethodCall call, MethodResult result) { methods.dispatch(*this, std::move(call), std::move(result)); });
}

void WindowControlChannel::sendUpdateWindowVisibility(Visibility visibility) {
  channel_.invoke("updateWindowVisibility", visibility == Visibility::visible);
}

void WindowControlChannel::sendDockIconClicked() { channel_.invoke("onDockIconClicked"); }

void WindowControlChannel::showWindow(Value, MethodResult result) {
  window_.show();
  result.success();
}

void WindowControlChannel::hideWindow(Value, MethodResult result) {
  window_.hide();
  result.success();
}

void WindowControlChannel::updateWindowVisibility(Value arguments, MethodResult result) {
  if (const auto visible = arguments.asBool()) {
    logger_.info("🏠 Window visibility updated from Flutter: " + truth(*visible));
  }
  result.success();
}

}  // namespace quillbeam
