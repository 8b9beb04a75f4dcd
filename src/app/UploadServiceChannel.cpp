#include "app/UploadServiceChannel.h"

#include "app/ChannelNames.h"
#include "channels/MethodTable.h"

namespace quillbeam {

UploadServiceChannel::UploadServiceChannel(BinaryMessenger& messenger, const Logger& logger)
    : logger_(logger), channel_(messenger, std::string(channel_names::uploadService)) {
  static const MethodTable<UploadServiceChannel> methods = {
      {"resetRecordingTimer", &UploadServiceChannel::resetRecordingTimer},
      {"uploadAudio", &UploadServiceChannel::uploadAudio},
  };
  channel_.setCallHandler([this](MethodCall call, MethodResult result) {
    const std::string method = call.method;
    logger_.info("📱 macOS: Upload service method called: " + method);
    if (methods.dispatch(*this, std::move(call), std::move(result)) == Dispatched::unknown) {
      logger_.info("⚠️ macOS: Unimplemented method: " + method);
    }
  });
}

void UploadServiceChannel::resetRecordingTimer(Value, MethodResult result) {
  logger_.info("📱 macOS: Reset recording timer requested");
  result.success();
}

void UploadServiceChannel::uploadAudio(Value, MethodResult result) {
  logger_.info("📤 macOS: Audio upload requested");
  result.success();
}

}  // namespace quillbeam
