#pragma once

#include <cstdint>
#include <span>

namespace quillbeam {

enum class PixelFormat { bgra32, i420 };

/// One plane of a picture: rows of `stride` bytes, the first `width` samples of each are picture.
struct Plane {
  const std::uint8_t* data = nullptr;
  int stride = 0;
};

/// An immutable picture, shared by pointer between capture and encoders. Screens are read as 32-bit BGRA and converted
/// once, by the capture port, so pictures that travel are I420 (Y, U, V planes; the chroma planes have half the width
/// and height): BT.601 matrix, limited range, sRGB primaries and transfer. Width and height are even.
class PixelBuffer {
 public:
  virtual ~PixelBuffer() = default;
  virtual int width() const = 0;
  virtual int height() const = 0;
  virtual Plane y() const = 0;
  virtual Plane u() const = 0;
  virtual Plane v() const = 0;
};

}  // namespace quillbeam
