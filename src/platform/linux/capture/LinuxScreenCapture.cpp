#include "platform/linux/capture/LinuxScreenCapture.h"

#include <algorithm>
#include <utility>

#include "base/Completion.h"
#include "platform/linux/capture/LinuxCaptureStream.h"
#include "platform/linux/capture/ScriptedScreen.h"
#include "platform/linux/x11/X11Content.h"

namespace quillbeam {

namespace {

constexpr std::size_t picturesWithEncoders = 4;

Result<void> check(const StreamConfiguration& configuration) {
  const bool isSensible = configuration.width >= 2 && configuration.height >= 2 && configuration.queueDepth > 0 &&
                          configuration.minimumFrameInterval > MediaTime::zero();
  if (!isSensible) return CommonError::invalidArgument;
  const bool isSupported = configuration.pixelFormat == PixelFormat::bgra32 && !configuration.showsCursor &&
                           configuration.sampleRate == 48'000 && configuration.channelCount == 2;
  if (!isSupported) return CommonError::unsupported;
  return success;
}

}  // namespace

LinuxScreenCapture::LinuxScreenCapture(Dispatch& dispatch, SoundSources& sounds, SystemLog& log,
                                       std::string displayName)
    : dispatch_(dispatch), sounds_(sounds), log_(log), displayName_(std::move(displayName)) {}

Task<ShareableContent> LinuxScreenCapture::shareableContent() {
  // A server that hesitates must not hold the main queue.
  co_return co_await completed<ShareableContent>([this](Completion<ShareableContent> done) {
    dispatch_.global().async([done, displayName = displayName_] { done(readShareableContent(displayName)); });
  });
}

Task<ShareableContent> LinuxScreenCapture::shareableContentForSound() {
  ShareableContent content;
  content.displays.push_back({ScriptedScreen::displayId, ScriptedScreen::side, ScriptedScreen::side});
  co_return content;
}

Result<std::unique_ptr<CaptureStream>> LinuxScreenCapture::makeStream(const ShareableDisplay& display,
                                                                      const StreamConfiguration& configuration,
                                                                      StreamDelegate& delegate) {
  TRY_VOID(check(configuration));
  const GrabberOptions screen{
      .displayName = displayName_,
      .displayId = display.displayId,
      .width = configuration.width,
      .height = configuration.height,
      .sparePictures = static_cast<std::size_t>(configuration.queueDepth) + picturesWithEncoders};
  StreamConfiguration paced = configuration;
  paced.minimumFrameInterval = std::max(configuration.minimumFrameInterval, shortestFrameInterval);
  return std::make_unique<LinuxCaptureStream>(LinuxCaptureStream::Parts{dispatch_, sounds_, log_}, screen, paced,
                                              delegate);
}

}  // namespace quillbeam
