#include "platform/linux/x11/X11Content.h"

#include "platform/linux/x11/X11Connection.h"
#include "platform/linux/x11/X11Displays.h"
#include "platform/linux/x11/X11Windows.h"

namespace quillbeam {

Result<ShareableContent> readShareableContent(const std::string& displayName) {
  TRY(auto connection, X11Connection::open(displayName));
  TRY(auto displays, X11Displays(*connection).list());
  ShareableContent content;
  for (const auto& area : displays) content.displays.push_back({area.displayId, area.width, area.height});
  TRY(content.windows, X11Windows(*connection).list());
  return content;
}

}  // namespace quillbeam
