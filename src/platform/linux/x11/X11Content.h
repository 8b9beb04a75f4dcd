#pragma once

#include <string>

#include "base/Result.h"
#include "platform/capture/ScreenCapture.h"

namespace quillbeam {

/// What a server shows now, asked over a connection of its own; takes a few milliseconds. `displayName` as in $DISPLAY;
/// empty stands for $DISPLAY itself. `ScreenCaptureError::noDisplayServer`. Any thread.
Result<ShareableContent> readShareableContent(const std::string& displayName);

}  // namespace quillbeam
