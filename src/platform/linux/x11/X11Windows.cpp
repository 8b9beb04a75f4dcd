#include "platform/linux/x11/X11Windows.h"

#include <xcb/xcb.h>

#include <cstring>

#include "platform/linux/x11/X11Connection.h"

namespace quillbeam {

namespace {

constexpr std::uint32_t longestProperty = 16 * 1024;  // in 32-bit units: thousands of windows, any title

/// WM_CLASS holds the instance, then the class, each ended by a zero byte; the class is what names the application.
std::string applicationFrom(const std::string& windowClass) {
  const auto end = windowClass.find('\0');
  if (end == std::string::npos) return windowClass;
  return windowClass.substr(end + 1).c_str();
}

}  // namespace

Result<std::vector<ShareableWindow>> X11Windows::list() const {
  auto ids = managedClients();
  if (ids.empty()) ids = visibleChildren();
  std::vector<ShareableWindow> windows;
  windows.reserve(ids.size());
  for (const auto id : ids) windows.push_back(window(id));
  if (!connection_.isAlive()) return connection_.failure();
  return windows;
}

std::vector<std::uint32_t> X11Windows::managedClients() const {
  const auto clientList = connection_.atom("_NET_CLIENT_LIST_STACKING");
  const auto bytes = clientList != XCB_ATOM_NONE ? property(connection_.root(), clientList) : std::string();
  std::vector<std::uint32_t> ids(bytes.size() / sizeof(std::uint32_t));
  if (!ids.empty()) std::memcpy(ids.data(), bytes.data(), ids.size() * sizeof(std::uint32_t));
  return ids;
}

std::vector<std::uint32_t> X11Windows::visibleChildren() const {
  auto* handle = connection_.handle();
  XcbOwned<xcb_query_tree_reply_t> tree(
      xcb_query_tree_reply(handle, xcb_query_tree(handle, connection_.root()), nullptr));
  std::vector<std::uint32_t> ids;
  if (!tree) return ids;
  const auto* children = xcb_query_tree_children(tree.get());
  for (int i = 0; i < xcb_query_tree_children_length(tree.get()); ++i) {
    auto cookie = xcb_get_window_attributes(handle, children[i]);
    XcbOwned<xcb_get_window_attributes_reply_t> attributes(xcb_get_window_attributes_reply(handle, cookie, nullptr));
    const bool shows = attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE &&
                       attributes->_class == XCB_WINDOW_CLASS_INPUT_OUTPUT;
    if (shows) ids.push_back(children[i]);
  }
  return ids;
}

ShareableWindow X11Windows::window(std::uint32_t windowId) const {
  const auto netName = connection_.atom("_NET_WM_NAME");
  auto title = netName != XCB_ATOM_NONE ? property(windowId, netName) : std::string();
  if (title.empty()) title = property(windowId, XCB_ATOM_WM_NAME);
  return {windowId, std::move(title), applicationFrom(property(windowId, XCB_ATOM_WM_CLASS))};
}

std::string X11Windows::property(std::uint32_t windowId, std::uint32_t atom) const {
  auto* handle = connection_.handle();
  auto cookie = xcb_get_property(handle, 0, windowId, atom, XCB_ATOM_ANY, 0, longestProperty);
  XcbOwned<xcb_get_property_reply_t> reply(xcb_get_property_reply(handle, cookie, nullptr));
  if (!reply) return {};
  return {static_cast<const char*>(xcb_get_property_value(reply.get())),
          static_cast<std::size_t>(xcb_get_property_value_length(reply.get()))};
}

}  // namespace quillbeam
