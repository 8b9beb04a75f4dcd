#include "platform/sim/SimScreenCapture.h"

#include <algorithm>

namespace quillbeam {

Task<ShareableContent> SimScreenCapture::shareableContent() {
  // As from a real server, the answer never comes at once.
  CO_TRY_VOID(co_await drained(dispatch_.global()));
  if (script.shareableContentError) co_return *script.shareableContentError;
  co_return ShareableContent{script.displays, script.windows};
}

Task<ShareableContent> SimScreenCapture::shareableContentForSound() {
  CO_TRY_VOID(co_await drained(dispatch_.global()));
  ShareableContent content;
  if (script.displayForSound) content.displays.push_back(*script.displayForSound);
  co_return content;
}

Result<std::unique_ptr<CaptureStream>> SimScreenCapture::makeStream(const ShareableDisplay& display,
                                                                    const StreamConfiguration& configuration,
                                                                    StreamDelegate& delegate) {
  if (script.makeStreamError) return *script.makeStreamError;
  made_.push_back({display, configuration});
  auto stream = std::make_unique<SimCaptureStream>(dispatch_, script.stream, configuration, delegate,
                                                   [this](SimCaptureStream* gone) { std::erase(streams_, gone); });
  streams_.push_back(stream.get());
  return stream;
}

}  // namespace quillbeam
