#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "base/Result.h"
#include "platform/linux/x11/PictureConverter.h"
#include "platform/linux/x11/PicturePool.h"
#include "platform/linux/x11/RowRange.h"
#include "platform/linux/x11/ScreenSource.h"

namespace quillbeam {

class DamageTracker;
class ScreenImage;
class X11Connection;

struct GrabberOptions {
  std::string displayName;  ///< of the server; empty stands for $DISPLAY
  std::uint32_t displayId = 0;
  int width = 0;  ///< of the pictures; odd sizes lose a row or column
  int height = 0;
  std::size_t sparePictures = 8;
};

/// Takes pictures of one display of an X server, over a connection of its own. Used by one thread at a time, which need
/// not be the one that made it. Pictures have one size for good: when the display changes its own, they show it fitted.
class ScreenGrabber final : public ScreenSource {
 public:
  /// `ScreenCaptureError::noDisplayServer`, `ScreenCaptureError::displayGone` (there is no such display),
  /// `X11Error::unsupportedPixels`, `X11Error::outOfMemory`.
  static Result<std::unique_ptr<ScreenGrabber>> create(const GrabberOptions& options);
  ~ScreenGrabber() override;

  Result<ScreenState> poll() override;
  Result<std::shared_ptr<const PixelBuffer>> grab() override;

 private:
  ScreenGrabber(std::unique_ptr<X11Connection> connection, const GrabberOptions& options);
  void watchDisplays();
  void takeEvents();
  Result<void> followDisplay();

  std::unique_ptr<X11Connection> connection_;
  std::uint32_t displayId_;
  std::unique_ptr<DamageTracker> damage_;
  PictureConverter converter_;
  PicturePool pool_;
  std::unique_ptr<ScreenImage> image_;  // null while the display is absent
  RowRange changed_;
  bool displaysChanged_ = true;
};

}  // namespace quillbeam
