#include "platform/linux/x11/X11Connection.h"

#include <xcb/damage.h>
#include <xcb/randr.h>
#include <xcb/shm.h>
#include <xcb/xcb.h>
#include <xcb/xfixes.h>

#include "platform/capture/ScreenCapture.h"
#include "platform/linux/x11/X11Error.h"

namespace quillbeam {

namespace {

Error noServer(const std::string& displayName) {
  const char* environment = std::getenv("DISPLAY");
  std::string name = !displayName.empty() ? displayName : environment != nullptr ? environment : "";
  return Error(ScreenCaptureError::noDisplayServer)
      .withDescription(name.empty() ? "No display server: DISPLAY is not set"
                                    : "No display server answers at \"" + name + "\"");
}

const xcb_screen_t* screenAt(xcb_connection_t* connection, int index) {
  auto screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
  for (; screens.rem > 0; xcb_screen_next(&screens)) {
    if (index-- == 0) return screens.data;
  }
  return nullptr;
}

}  // namespace

Result<std::unique_ptr<X11Connection>> X11Connection::open(const std::string& displayName) {
  int screenIndex = 0;
  xcb_connection_t* connection = xcb_connect(displayName.empty() ? nullptr : displayName.c_str(), &screenIndex);
  const xcb_screen_t* screen = xcb_connection_has_error(connection) == 0 ? screenAt(connection, screenIndex) : nullptr;
  if (screen == nullptr) {
    xcb_disconnect(connection);
    return noServer(displayName);
  }
  std::unique_ptr<X11Connection> opened(new X11Connection(connection, *screen));
  opened->findExtensions();
  if (!opened->isAlive()) return noServer(displayName);
  return opened;
}

X11Connection::X11Connection(xcb_connection_t* connection, const xcb_screen_t& screen)
    : connection_(connection), screen_(screen) {}

X11Connection::~X11Connection() { xcb_disconnect(connection_); }

std::uint32_t X11Connection::root() const { return screen_.root; }

void X11Connection::findExtensions() {
  // The server honours an extension's requests only after it was told which version its client speaks.
  const auto has = [this](xcb_extension_t& id) {
    const auto* data = xcb_get_extension_data(connection_, &id);
    return data != nullptr && data->present != 0 ? data : nullptr;
  };
  if (has(xcb_shm_id) != nullptr) {
    auto cookie = xcb_shm_query_version(connection_);
    extensions_.sharedMemory =
        XcbOwned<xcb_shm_query_version_reply_t>(xcb_shm_query_version_reply(connection_, cookie, nullptr)) != nullptr;
  }
  if (has(xcb_xfixes_id) != nullptr) {
    auto cookie = xcb_xfixes_query_version(connection_, 2, 0);
    XcbOwned<xcb_xfixes_query_version_reply_t> reply(xcb_xfixes_query_version_reply(connection_, cookie, nullptr));
    extensions_.regions = reply && reply->major_version >= 2;
  }
  if (const auto* damage = has(xcb_damage_id)) {
    auto cookie = xcb_damage_query_version(connection_, 1, 1);
    XcbOwned<xcb_damage_query_version_reply_t> reply(xcb_damage_query_version_reply(connection_, cookie, nullptr));
    if (reply) extensions_.damageEvents = damage->first_event;
  }
  if (const auto* randr = has(xcb_randr_id)) {
    auto cookie = xcb_randr_query_version(connection_, 1, 3);
    XcbOwned<xcb_randr_query_version_reply_t> reply(xcb_randr_query_version_reply(connection_, cookie, nullptr));
    const bool serves = reply && (reply->major_version > 1 || reply->minor_version >= 3);
    if (serves) extensions_.randrEvents = randr->first_event;
  }
}

bool X11Connection::isAlive() const { return xcb_connection_has_error(connection_) == 0; }

Error X11Connection::failure() const {
  if (!isAlive()) return ScreenCaptureError::connectionLost;
  return X11Error::requestRefused;
}

XcbOwned<xcb_generic_event_t> X11Connection::nextEvent() {
  return XcbOwned<xcb_generic_event_t>(xcb_poll_for_event(connection_));
}

std::uint32_t X11Connection::atom(std::string_view name) const {
  auto cookie = xcb_intern_atom(connection_, 1, static_cast<std::uint16_t>(name.size()), name.data());
  XcbOwned<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(connection_, cookie, nullptr));
  return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
}

}  // namespace quillbeam
