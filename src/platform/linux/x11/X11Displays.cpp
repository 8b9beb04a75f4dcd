#include "platform/linux/x11/X11Displays.h"

#include <xcb/randr.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <tuple>

#include "platform/linux/x11/X11Connection.h"

namespace quillbeam {

namespace {

/// A display may be set up to reach beyond the root window (panning); only what lies inside can be read.
std::optional<DisplayArea> clipped(DisplayArea area, const DisplayArea& root) {
  const int right = std::min(area.x + area.width, root.width);
  const int bottom = std::min(area.y + area.height, root.height);
  area.x = std::max(area.x, 0);
  area.y = std::max(area.y, 0);
  area.width = right - area.x;
  area.height = bottom - area.y;
  if (area.width < 2 || area.height < 2) return std::nullopt;
  return area;
}

bool showTheSame(const DisplayArea& a, const DisplayArea& b) {
  return std::tie(a.x, a.y, a.width, a.height) == std::tie(b.x, b.y, b.width, b.height);
}

}  // namespace

Result<std::vector<DisplayArea>> X11Displays::list() const {
  TRY(auto rootArea, root());
  std::vector<DisplayArea> displays;
  if (connection_.extensions().randrEvents) {
    auto* handle = connection_.handle();
    auto cookie = xcb_randr_get_screen_resources_current(handle, connection_.root());
    XcbOwned<xcb_randr_get_screen_resources_current_reply_t> resources(
        xcb_randr_get_screen_resources_current_reply(handle, cookie, nullptr));
    const auto* crtcs = resources ? xcb_randr_get_screen_resources_current_crtcs(resources.get()) : nullptr;
    for (int i = 0; resources && i < resources->num_crtcs; ++i) {
      if (auto area = crtc(crtcs[i], rootArea)) displays.push_back(*area);
    }
  }
  if (!connection_.isAlive()) return connection_.failure();
  if (displays.empty()) return std::vector{rootArea};

  const auto primary = primaryCrtc();
  std::ranges::sort(displays, {}, [primary](const DisplayArea& display) {
    return std::tuple(display.displayId != primary, display.x, display.y, display.displayId);
  });
  std::vector<DisplayArea> distinct;
  for (const auto& display : displays) {
    if (std::ranges::none_of(distinct, [&](const DisplayArea& other) { return showTheSame(display, other); })) {
      distinct.push_back(display);
    }
  }
  return distinct;
}

Result<std::optional<DisplayArea>> X11Displays::find(std::uint32_t displayId) const {
  TRY(auto rootArea, root());
  if (displayId == rootArea.displayId) return std::optional(rootArea);
  auto area = connection_.extensions().randrEvents ? crtc(displayId, rootArea) : std::nullopt;
  if (!connection_.isAlive()) return connection_.failure();
  return area;
}

Result<DisplayArea> X11Displays::root() const {
  auto cookie = xcb_get_geometry(connection_.handle(), connection_.root());
  XcbOwned<xcb_get_geometry_reply_t> reply(xcb_get_geometry_reply(connection_.handle(), cookie, nullptr));
  if (!reply) return connection_.failure();
  return DisplayArea{connection_.root(), 0, 0, reply->width, reply->height};
}

std::optional<DisplayArea> X11Displays::crtc(std::uint32_t crtcId, const DisplayArea& root) const {
  auto cookie = xcb_randr_get_crtc_info(connection_.handle(), crtcId, XCB_CURRENT_TIME);
  XcbOwned<xcb_randr_get_crtc_info_reply_t> info(xcb_randr_get_crtc_info_reply(connection_.handle(), cookie, nullptr));
  if (!info || info->mode == XCB_NONE || info->num_outputs == 0) return std::nullopt;
  return clipped({crtcId, info->x, info->y, info->width, info->height}, root);
}

std::uint32_t X11Displays::primaryCrtc() const {
  if (!connection_.extensions().randrEvents) return XCB_NONE;
  auto* handle = connection_.handle();
  auto primary = xcb_randr_get_output_primary(handle, connection_.root());
  XcbOwned<xcb_randr_get_output_primary_reply_t> output(xcb_randr_get_output_primary_reply(handle, primary, nullptr));
  if (!output || output->output == XCB_NONE) return XCB_NONE;
  auto cookie = xcb_randr_get_output_info(handle, output->output, XCB_CURRENT_TIME);
  XcbOwned<xcb_randr_get_output_info_reply_t> info(xcb_randr_get_output_info_reply(handle, cookie, nullptr));
  return info ? info->crtc : XCB_NONE;
}

}  // namespace quillbeam
