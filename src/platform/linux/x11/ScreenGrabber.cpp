#include "platform/linux/x11/ScreenGrabber.h"

#include <xcb/randr.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <utility>

#include "platform/capture/ScreenCapture.h"
#include "platform/linux/x11/DamageTracker.h"
#include "platform/linux/x11/ScreenImage.h"
#include "platform/linux/x11/X11Connection.h"
#include "platform/linux/x11/X11Displays.h"
#include "platform/linux/x11/X11Error.h"

namespace quillbeam {

namespace {

constexpr std::uint8_t eventTypeMask = 0x7f;

int evenSize(int length) { return std::max(length & ~1, 2); }

RowRange united(RowRange a, RowRange b) {
  if (a.isEmpty()) return b;
  if (b.isEmpty()) return a;
  return {std::min(a.begin, b.begin), std::max(a.end, b.end)};
}

}  // namespace

Result<std::unique_ptr<ScreenGrabber>> ScreenGrabber::create(const GrabberOptions& options) {
  TRY(auto connection, X11Connection::open(options.displayName));
  std::unique_ptr<ScreenGrabber> grabber(new ScreenGrabber(std::move(connection), options));
  grabber->watchDisplays();
  TRY_VOID(grabber->followDisplay());
  if (!grabber->image_) return ScreenCaptureError::displayGone;
  return grabber;
}

ScreenGrabber::ScreenGrabber(std::unique_ptr<X11Connection> connection, const GrabberOptions& options)
    : connection_(std::move(connection)),
      displayId_(options.displayId),
      damage_(std::make_unique<DamageTracker>(*connection_)),
      pool_(evenSize(options.width), evenSize(options.height), options.sparePictures) {}

ScreenGrabber::~ScreenGrabber() = default;

void ScreenGrabber::watchDisplays() {
  if (connection_->extensions().randrEvents) {
    xcb_randr_select_input(
        connection_->handle(), connection_->root(),
        XCB_RANDR_NOTIFY_MASK_SCREEN_CHANGE | XCB_RANDR_NOTIFY_MASK_CRTC_CHANGE | XCB_RANDR_NOTIFY_MASK_OUTPUT_CHANGE);
  }
  const std::uint32_t structure = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
  xcb_change_window_attributes(connection_->handle(), connection_->root(), XCB_CW_EVENT_MASK, &structure);
  xcb_flush(connection_->handle());
}

Result<ScreenState> ScreenGrabber::poll() {
  takeEvents();
  if (!connection_->isAlive()) return ScreenCaptureError::connectionLost;
  if (displaysChanged_) TRY_VOID(followDisplay());
  if (!image_) return ScreenState::absent;
  TRY(auto rows, damage_->collect(image_->area()));
  changed_ = united(changed_, rows);
  return changed_.isEmpty() ? ScreenState::unchanged : ScreenState::changed;
}

void ScreenGrabber::takeEvents() {
  const auto& randr = connection_->extensions().randrEvents;
  while (auto event = connection_->nextEvent()) {
    damage_->handle(*event);
    const int type = event->response_type & eventTypeMask;
    const bool randrReports =
        randr && (type == *randr + XCB_RANDR_SCREEN_CHANGE_NOTIFY || type == *randr + XCB_RANDR_NOTIFY);
    if (randrReports || type == XCB_CONFIGURE_NOTIFY) displaysChanged_ = true;
  }
}

Result<void> ScreenGrabber::followDisplay() {
  TRY(auto area, X11Displays(*connection_).find(displayId_));
  displaysChanged_ = false;
  if (area && image_ && image_->area() == *area) return success;
  image_.reset();
  if (!area) return success;
  TRY(image_, ScreenImage::create(*connection_, *area));
  changed_ = {0, area->height};
  return success;
}

Result<std::shared_ptr<const PixelBuffer>> ScreenGrabber::grab() {
  if (!image_) return nullptr;
  if (auto read = image_->read(changed_); !read) {
    if (!read.error().is(X11Error::requestRefused)) return std::move(read).error();
    // The display shrank between the server's report and the request: look again at the next poll.
    displaysChanged_ = true;
    return nullptr;
  }
  auto picture = pool_.take();
  if (!picture) return X11Error::outOfMemory;
  TRY_VOID(converter_.convert(image_->pixels(), *picture));
  changed_ = {};
  return picture;
}

}  // namespace quillbeam
