#pragma once

#include <string>

#include "platform/Dispatch.h"
#include "platform/Logging.h"
#include "platform/capture/ScreenCapture.h"
#include "platform/linux/capture/SoundSource.h"

namespace quillbeam {

/// Captures the displays of an X server. Streams deliver 48 kHz stereo sound and pictures without the cursor.
class LinuxScreenCapture final : public ScreenCapture {
 public:
  /// `displayName` as in $DISPLAY; empty stands for $DISPLAY itself. What is referred to outlives the streams.
  LinuxScreenCapture(Dispatch& dispatch, SoundSources& sounds, SystemLog& log, std::string displayName = {});

  Task<ShareableContent> shareableContent() override;
  /// Always the scripted display: a recording of sound depends on no display server, and reads no screen.
  Task<ShareableContent> shareableContentForSound() override;
  /// `CommonError::invalidArgument` for sizes, intervals and depths that are not positive, `CommonError::unsupported`
  /// for a visible cursor and for other sound or pixel formats than the above. The display is looked for when capture
  /// starts.
  Result<std::unique_ptr<CaptureStream>> makeStream(const ShareableDisplay& display,
                                                    const StreamConfiguration& configuration,
                                                    StreamDelegate& delegate) override;

 private:
  Dispatch& dispatch_;
  SoundSources& sounds_;
  SystemLog& log_;
  std::string displayName_;
};

}  // namespace quillbeam
