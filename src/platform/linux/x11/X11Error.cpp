#include "platform/linux/x11/X11Error.h"

#include <utility>

namespace quillbeam {

std::string describe(X11Error error) {
  switch (error) {
    case X11Error::unsupportedPixels:
      return "The screen must have 24-bit true colour in 32-bit little-endian pixels";
    case X11Error::requestRefused:
      return "The display server refused a request";
    case X11Error::outOfMemory:
      return "There is no memory for a picture of the screen";
  }
  std::unreachable();
}

}  // namespace quillbeam
