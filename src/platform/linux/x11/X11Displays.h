#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "base/Result.h"

namespace quillbeam {

class X11Connection;

/// Where a display lies on the root window, in pixels.
struct DisplayArea {
  std::uint32_t displayId = 0;
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
  friend bool operator==(const DisplayArea&, const DisplayArea&) = default;
};

/// The displays of a server: what RandR scans out (its CRTCs; one of several that show the same area), or the root
/// window as one display where there is no RandR. Identifiers are the server's and hold while it runs.
class X11Displays {
 public:
  explicit X11Displays(X11Connection& connection) : connection_(connection) {}

  /// The main display first, the others from left to right. Fails only with the connection.
  Result<std::vector<DisplayArea>> list() const;
  /// nullopt when the display is switched off or gone.
  Result<std::optional<DisplayArea>> find(std::uint32_t displayId) const;

 private:
  Result<DisplayArea> root() const;
  std::optional<DisplayArea> crtc(std::uint32_t crtcId, const DisplayArea& root) const;
  std::uint32_t primaryCrtc() const;

  X11Connection& connection_;
};

}  // namespace quillbeam
