#include "platform/linux/x11/X11Permissions.h"

#include "platform/linux/x11/ScreenImage.h"
#include "platform/linux/x11/X11Connection.h"
#include "platform/linux/x11/X11Displays.h"

namespace quillbeam {

bool X11Permissions::preflightScreenCaptureAccess() {
  auto connection = X11Connection::open(displayName_);
  if (!connection) return false;
  // Servers can let a client connect and still refuse it the screen's pixels.
  auto displays = X11Displays(**connection).list();
  if (!displays) return false;
  auto corner = displays->front();
  corner.width = 2;
  corner.height = 2;
  auto image = ScreenImage::create(**connection, corner);
  return image && (*image)->read({0, corner.height}).has_value();
}

}  // namespace quillbeam
