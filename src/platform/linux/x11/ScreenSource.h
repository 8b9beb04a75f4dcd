#pragma once

#include <memory>

#include "base/Result.h"
#include "platform/media/PixelBuffer.h"

namespace quillbeam {

enum class ScreenState {
  unchanged,
  changed,  ///< since the picture before
  absent,   ///< switched off or unplugged; may come back, in another size too
};

/// A screen that pictures are taken of. Used by one thread at a time.
class ScreenSource {
 public:
  virtual ~ScreenSource() = default;

  /// Takes in what the server reported, without waiting for more. Before the first picture the screen has changed.
  /// `ScreenCaptureError::connectionLost`.
  virtual Result<ScreenState> poll() = 0;
  /// A picture of the screen now. nullptr when it cannot be read at the moment (it is absent, or just changing its
  /// size); the screen then stays changed. `ScreenCaptureError::connectionLost`, `X11Error::outOfMemory`.
  virtual Result<std::shared_ptr<const PixelBuffer>> grab() = 0;
};

}  // namespace quillbeam
