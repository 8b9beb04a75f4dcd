#pragma once

#include <map>
#include <optional>
#include <vector>

#include "platform/capture/ScreenCapture.h"
#include "platform/sim/SimCaptureStream.h"

namespace quillbeam {

/// A scripted screen. Streams take their part of the script when they are made, except for what they ask of it later
/// (errors), which may be set at any time:
///
///     SimScreenCapture capture(dispatch);
///     capture.script.windows = {{7, "Weekly", "Calendar"}};
///     capture.script.stream.startError = ScreenCaptureError::displayGone;
///     …
///     capture.stream()->stopByItself(ScreenCaptureError::connectionLost);
class SimScreenCapture final : public ScreenCapture {
 public:
  struct Script {
    std::vector<ShareableDisplay> displays{{1, 1920, 1080}};
    std::optional<ShareableDisplay> displayForSound = ShareableDisplay{0, 2, 2};
    std::vector<ShareableWindow> windows;
    std::optional<Error> shareableContentError;
    std::optional<Error> makeStreamError;
    SimCaptureScript stream;
  };

  explicit SimScreenCapture(Dispatch& dispatch) : dispatch_(dispatch) {}

  Task<ShareableContent> shareableContent() override;
  Task<ShareableContent> shareableContentForSound() override;
  Result<std::unique_ptr<CaptureStream>> makeStream(const ShareableDisplay& display,
                                                    const StreamConfiguration& configuration,
                                                    StreamDelegate& delegate) override;

  // The test's side.

  Script script;
  /// The stream made last; null before the first and when it is gone.
  SimCaptureStream* stream() const { return streams_.empty() ? nullptr : streams_.back(); }
  /// What streams were made of and with, in order.
  struct Made {
    ShareableDisplay display;
    StreamConfiguration configuration;
  };
  const std::vector<Made>& made() const { return made_; }

 private:
  Dispatch& dispatch_;
  std::vector<SimCaptureStream*> streams_;  // those that exist
  std::vector<Made> made_;
};

}  // namespace quillbeam
