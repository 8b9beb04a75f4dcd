#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/Result.h"
#include "platform/capture/ScreenCapture.h"

namespace quillbeam {

class X11Connection;

/// The windows a person sees: the window manager's client list (bottom first), or the mapped children of the root where
/// no window manager keeps one.
class X11Windows {
 public:
  explicit X11Windows(X11Connection& connection) : connection_(connection) {}

  /// Windows that close meanwhile are left out. Fails only with the connection.
  Result<std::vector<ShareableWindow>> list() const;

 private:
  std::vector<std::uint32_t> managedClients() const;
  std::vector<std::uint32_t> visibleChildren() const;
  ShareableWindow window(std::uint32_t windowId) const;
  /// The property's bytes whatever its type; empty when the window has none.
  std::string property(std::uint32_t windowId, std::uint32_t atom) const;

  X11Connection& connection_;
};

}  // namespace quillbeam
