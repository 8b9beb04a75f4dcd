#include "platform/linux/x11/ScreenImage.h"

#include <sys/ipc.h>
#include <sys/shm.h>
#include <xcb/shm.h>
#include <xcb/xcb.h>

#include <cstring>
#include <new>

#include "platform/linux/x11/X11Error.h"

namespace quillbeam {

namespace {

constexpr std::uint32_t allPlanes = ~0U;

bool hasFormat(const xcb_setup_t& setup, std::uint8_t depth, std::uint8_t bitsPerPixel) {
  auto formats = xcb_setup_pixmap_formats_iterator(&setup);
  for (; formats.rem > 0; xcb_format_next(&formats)) {
    if (formats.data->depth == depth) return formats.data->bits_per_pixel == bitsPerPixel;
  }
  return false;
}

const xcb_visualtype_t* rootVisual(const xcb_screen_t& screen) {
  auto depths = xcb_screen_allowed_depths_iterator(&screen);
  for (; depths.rem > 0; xcb_depth_next(&depths)) {
    auto visuals = xcb_depth_visuals_iterator(depths.data);
    for (; visuals.rem > 0; xcb_visualtype_next(&visuals)) {
      if (visuals.data->visual_id == screen.root_visual) return visuals.data;
    }
  }
  return nullptr;
}

bool isBgra(const X11Connection& connection) {
  const auto& setup = *xcb_get_setup(connection.handle());
  const auto& screen = connection.screen();
  const auto* visual = rootVisual(screen);
  const bool depthFits = screen.root_depth == 24 || screen.root_depth == 32;
  return depthFits && setup.image_byte_order == XCB_IMAGE_ORDER_LSB_FIRST && hasFormat(setup, screen.root_depth, 32) &&
         visual != nullptr && visual->_class == XCB_VISUAL_CLASS_TRUE_COLOR && visual->red_mask == 0xff0000 &&
         visual->green_mask == 0xff00 && visual->blue_mask == 0xff;
}

}  // namespace

Result<std::unique_ptr<ScreenImage>> ScreenImage::create(X11Connection& connection, const DisplayArea& area) {
  if (!isBgra(connection)) return X11Error::unsupportedPixels;
  std::unique_ptr<ScreenImage> image(new ScreenImage(connection, area));
  if (!image->share()) {
    try {
      image->copied_.resize(static_cast<std::size_t>(image->stride()) * area.height);
    } catch (const std::bad_alloc&) {
      return X11Error::outOfMemory;
    }
  }
  return image;
}

ScreenImage::~ScreenImage() {
  if (segment_ != 0) {
    xcb_shm_detach(connection_.handle(), segment_);
    xcb_flush(connection_.handle());
  }
  if (shared_ != nullptr) shmdt(shared_);
}

bool ScreenImage::share() {
  if (!connection_.extensions().sharedMemory) return false;
  const auto bytes = static_cast<std::size_t>(stride()) * area_.height;
  const int id = shmget(IPC_PRIVATE, bytes, IPC_CREAT | 0600);
  if (id < 0) return false;
  void* memory = shmat(id, nullptr, 0);
  if (memory != reinterpret_cast<void*>(-1)) {
    shared_ = static_cast<std::uint8_t*>(memory);
    segment_ = xcb_generate_id(connection_.handle());
    auto cookie = xcb_shm_attach_checked(connection_.handle(), segment_, static_cast<std::uint32_t>(id), 0);
    XcbOwned<xcb_generic_error_t> refused(xcb_request_check(connection_.handle(), cookie));
    if (refused || !connection_.isAlive()) segment_ = 0;
  }
  // Both sides are attached, or never will be: from here on the memory goes with its users, also when they crash.
  shmctl(id, IPC_RMID, nullptr);
  return segment_ != 0;
}

Result<void> ScreenImage::read(RowRange rows) {
  if (rows.isEmpty()) return success;
  return segment_ != 0 ? readShared(rows) : readCopied(rows);
}

Result<void> ScreenImage::readShared(RowRange rows) {
  auto cookie =
      xcb_shm_get_image(connection_.handle(), connection_.root(), static_cast<std::int16_t>(area_.x),
                        static_cast<std::int16_t>(area_.y + rows.begin), static_cast<std::uint16_t>(area_.width),
                        static_cast<std::uint16_t>(rows.end - rows.begin), allPlanes, XCB_IMAGE_FORMAT_Z_PIXMAP,
                        segment_, static_cast<std::uint32_t>(rows.begin * stride()));
  XcbOwned<xcb_shm_get_image_reply_t> reply(xcb_shm_get_image_reply(connection_.handle(), cookie, nullptr));
  if (!reply) return connection_.failure();
  return success;
}

Result<void> ScreenImage::readCopied(RowRange rows) {
  auto cookie = xcb_get_image(connection_.handle(), XCB_IMAGE_FORMAT_Z_PIXMAP, connection_.root(),
                              static_cast<std::int16_t>(area_.x), static_cast<std::int16_t>(area_.y + rows.begin),
                              static_cast<std::uint16_t>(area_.width),
                              static_cast<std::uint16_t>(rows.end - rows.begin), allPlanes);
  XcbOwned<xcb_get_image_reply_t> reply(xcb_get_image_reply(connection_.handle(), cookie, nullptr));
  const auto bytes = static_cast<std::size_t>(stride()) * (rows.end - rows.begin);
  if (!reply || static_cast<std::size_t>(xcb_get_image_data_length(reply.get())) < bytes) {
    return connection_.failure();
  }
  std::memcpy(copied_.data() + static_cast<std::size_t>(stride()) * rows.begin, xcb_get_image_data(reply.get()), bytes);
  return success;
}

ScreenPixels ScreenImage::pixels() const {
  return {segment_ != 0 ? shared_ : copied_.data(), stride(), area_.width, area_.height};
}

}  // namespace quillbeam
