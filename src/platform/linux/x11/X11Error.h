#pragma once

#include <string>
#include <string_view>

#include "base/Error.h"

namespace quillbeam {

enum class X11Error {
  unsupportedPixels,  ///< the screen is not 24-bit true colour in 32-bit little-endian pixels
  requestRefused,     ///< the server answered a request with an error
  outOfMemory,        ///< no memory for a picture
};
std::string describe(X11Error error);
constexpr std::string_view errorDomain(X11Error) { return "X11Error"; }

}  // namespace quillbeam
