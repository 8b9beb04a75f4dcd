#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "base/Result.h"
#include "platform/linux/x11/PictureConverter.h"
#include "platform/linux/x11/RowRange.h"
#include "platform/linux/x11/X11Connection.h"
#include "platform/linux/x11/X11Displays.h"

namespace quillbeam {

/// A copy of one display's pixels that keeps what it read: reading the rows that changed brings it up to date. The
/// server writes into shared memory where it can; else (a remote display) rows come over the connection, some ten times
/// slower. The connection outlives the image.
class ScreenImage {
 public:
  /// `X11Error::unsupportedPixels` for screens in other pixels than `ScreenPixels` has; `X11Error::outOfMemory`.
  static Result<std::unique_ptr<ScreenImage>> create(X11Connection& connection, const DisplayArea& area);
  ~ScreenImage();
  ScreenImage(const ScreenImage&) = delete;
  ScreenImage& operator=(const ScreenImage&) = delete;

  /// Without the cursor. `X11Error::requestRefused` when the area no longer lies on the screen,
  /// `ScreenCaptureError::connectionLost`.
  Result<void> read(RowRange rows);
  ScreenPixels pixels() const;
  const DisplayArea& area() const { return area_; }
  bool isShared() const { return segment_ != 0; }

 private:
  ScreenImage(X11Connection& connection, const DisplayArea& area) : connection_(connection), area_(area) {}
  bool share();
  Result<void> readShared(RowRange rows);
  Result<void> readCopied(RowRange rows);
  int stride() const { return area_.width * 4; }

  X11Connection& connection_;
  DisplayArea area_;
  std::uint32_t segment_ = 0;  // the server's name for the shared memory
  std::uint8_t* shared_ = nullptr;
  std::vector<std::uint8_t> copied_;
};

}  // namespace quillbeam
