#include "platform/linux/x11/DamageTracker.h"

#include <xcb/damage.h>
#include <xcb/xcb.h>
#include <xcb/xfixes.h>

#include <algorithm>

namespace quillbeam {

namespace {

constexpr std::uint8_t eventTypeMask = 0x7f;  // the top bit marks events that another client sent

}  // namespace

DamageTracker::DamageTracker(X11Connection& connection) : connection_(connection) {
  const auto& extensions = connection.extensions();
  if (!extensions.damageEvents || !extensions.regions) return;
  damage_ = xcb_generate_id(connection.handle());
  region_ = xcb_generate_id(connection.handle());
  // One event when the first pixel changes, none until the damage was collected: a busy screen costs no more events
  // than pictures are taken of it.
  auto created =
      xcb_damage_create_checked(connection.handle(), damage_, connection.root(), XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
  xcb_xfixes_create_region(connection.handle(), region_, 0, nullptr);
  // Believing in a tracker that does not exist would freeze the picture for good.
  XcbOwned<xcb_generic_error_t> refused(xcb_request_check(connection.handle(), created));
  if (refused) damage_ = 0;
}

DamageTracker::~DamageTracker() {
  if (!isTracking()) return;
  xcb_damage_destroy(connection_.handle(), damage_);
  xcb_xfixes_destroy_region(connection_.handle(), region_);
  xcb_flush(connection_.handle());
}

void DamageTracker::handle(const xcb_generic_event_t& event) {
  const auto& first = connection_.extensions().damageEvents;
  if (first && (event.response_type & eventTypeMask) == *first + XCB_DAMAGE_NOTIFY) reported_ = true;
}

Result<RowRange> DamageTracker::collect(const DisplayArea& area) {
  if (!isTracking()) return RowRange{0, area.height};
  if (!reported_) return RowRange{};
  reported_ = false;
  auto* handle = connection_.handle();
  xcb_damage_subtract(handle, damage_, XCB_NONE, region_);
  auto cookie = xcb_xfixes_fetch_region(handle, region_);
  XcbOwned<xcb_xfixes_fetch_region_reply_t> region(xcb_xfixes_fetch_region_reply(handle, cookie, nullptr));
  if (!region) {
    if (!connection_.isAlive()) return connection_.failure();
    return RowRange{0, area.height};
  }
  RowRange rows{area.height, 0};
  const auto* rectangles = xcb_xfixes_fetch_region_rectangles(region.get());
  for (int i = 0; i < xcb_xfixes_fetch_region_rectangles_length(region.get()); ++i) {
    const auto& drawn = rectangles[i];
    if (drawn.x >= area.x + area.width || drawn.x + drawn.width <= area.x) continue;
    const int begin = std::max(drawn.y - area.y, 0);
    const int end = std::min(drawn.y + drawn.height - area.y, area.height);
    if (begin >= end) continue;
    rows = {std::min(rows.begin, begin), std::max(rows.end, end)};
  }
  return rows.isEmpty() ? RowRange{} : rows;
}

}  // namespace quillbeam
