#include "app/ScreenCaptureChannel.h"

#include "app/ChannelNames.h"
#include "channels/MethodTable.h"

namespace quillbeam {

namespace {

Value selectionMap(const ScreenCaptureSelection& selection) {
  if (selection.window) {
    const ShareableWindow& window = *selection.window;
    return ValueMap{{"type", "window"},
                    {"title", window.title.empty() ? "Untitled" : window.title},
                    {"appName", window.applicationName},
                    {"windowID", static_cast<std::int64_t>(window.windowId)}};
  }
  if (selection.display) {
    const std::int64_t number = selection.display->displayId;
    return ValueMap{{"type", "display"}, {"displayName", "Display " + std::to_string(number)}, {"displayID", number}};
  }
  return ValueMap();
}

}  // namespace

ScreenCaptureChannel::ScreenCaptureChannel(BinaryMessenger& messenger, DispatchQueue& main, MacRecorderManager& manager,
                                           const Logger& logger)
    : manager_(manager), logger_(logger), channel_(messenger, std::string(channel_names::screenCapture)), tasks_(main) {
  static const MethodTable<ScreenCaptureChannel> methods = {
      {"selectScreenCaptureContent", &ScreenCaptureChannel::select},
  };
  channel_.setCallHandler([this](MethodCall call, MethodResult result) {
    logger_.info("🖥️ macOS: Screen capture method called: " + call.method);
    methods.dispatch(*this, std::move(call), std::move(result));
  });
}

void ScreenCaptureChannel::select(Value, MethodResult result) {
  tasks_.start(manager_.selectScreenCaptureContent(),
               [result = std::move(result)](Result<ScreenCaptureSelection> selected) mutable {
                 if (!selected) return result.error("SELECTION_ERROR", selected.error().description());
                 result.success(selectionMap(*selected));
               });
}

}  // namespace quillbeam
