#pragma once

#include <cstddef>
#include <memory>

#include "platform/linux/x11/I420Picture.h"

namespace quillbeam {

/// Pictures of one size whose memory is used again: what the last holder of a picture lets go of is handed out next.
/// Pictures may be released on any thread and outlive the pool. How many exist at once is up to who holds them; the
/// pool itself keeps at most `spares`.
class PicturePool {
 public:
  PicturePool(int width, int height, std::size_t spares);

  /// Contents are left over from an earlier use. nullptr when memory is short.
  std::shared_ptr<I420Picture> take();

 private:
  struct Spares;
  int width_;
  int height_;
  std::shared_ptr<Spares> spares_;
};

}  // namespace quillbeam
