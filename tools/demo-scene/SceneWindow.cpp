#include "SceneWindow.h"

#include <sys/shm.h>

#include <cstdlib>

namespace quillbeam::demo {

std::unique_ptr<SceneWindow> SceneWindow::open() {
  int number = 0;
  xcb_connection_t* connection = xcb_connect(nullptr, &number);
  if (xcb_connection_has_error(connection)) {
    xcb_disconnect(connection);
    return nullptr;
  }
  auto screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
  while (number-- > 0) xcb_screen_next(&screens);
  const xcb_screen_t& screen = *screens.data;

  SharedPicture picture;
  picture.id = shmget(IPC_PRIVATE, std::size_t{4} * screen.width_in_pixels * screen.height_in_pixels, IPC_CREAT | 0600);
  void* memory = picture.id < 0 ? nullptr : shmat(picture.id, nullptr, 0);
  if (screen.root_depth != 24 || picture.id < 0 || memory == reinterpret_cast<void*>(-1)) {
    xcb_disconnect(connection);
    return nullptr;
  }
  picture.pixels = static_cast<std::uint32_t*>(memory);
  return std::unique_ptr<SceneWindow>(new SceneWindow(connection, screen, picture));
}

SceneWindow::SceneWindow(xcb_connection_t* connection, const xcb_screen_t& screen, SharedPicture picture)
    : connection_(connection),
      picture_(picture),
      canvas_({picture.pixels, std::size_t{screen.width_in_pixels} * screen.height_in_pixels}, screen.width_in_pixels,
              screen.height_in_pixels),
      window_(xcb_generate_id(connection)),
      context_(xcb_generate_id(connection)),
      segment_(xcb_generate_id(connection)) {
  const std::uint32_t values[] = {screen.black_pixel, 1};
  xcb_create_window(connection_, XCB_COPY_FROM_PARENT, window_, screen.root, 0, 0, screen.width_in_pixels,
                    screen.height_in_pixels, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, screen.root_visual,
                    XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
  xcb_create_gc(connection_, context_, window_, 0, nullptr);
  xcb_shm_attach(connection_, segment_, picture_.id, 0);
  xcb_map_window(connection_, window_);
  std::free(xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
  // From here on the memory goes away with the last process that uses it.
  shmctl(picture_.id, IPC_RMID, nullptr);
}

SceneWindow::~SceneWindow() {
  xcb_disconnect(connection_);
  shmdt(picture_.pixels);
}

void SceneWindow::show(std::span<const Rect> areas) {
  for (const Rect& area : areas) {
    xcb_shm_put_image(connection_, window_, context_, canvas_.width(), canvas_.height(), area.x, area.y, area.width,
                      area.height, area.x, area.y, 24, XCB_IMAGE_FORMAT_Z_PIXMAP, 0, segment_, 0);
  }
  // A round trip: the picture must not change while the server still reads it.
  std::free(xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
}

}  // namespace quillbeam::demo
