#pragma once

#include <xcb/shm.h>
#include <xcb/xcb.h>

#include <memory>
#include <span>

#include "Canvas.h"

namespace quillbeam::demo {

/// A borderless window over the whole screen of $DISPLAY, and the shared picture that it shows.
class SceneWindow {
 public:
  /// nullptr without a usable display (32-bit pixels, shared memory).
  static std::unique_ptr<SceneWindow> open();
  ~SceneWindow();
  SceneWindow(const SceneWindow&) = delete;
  SceneWindow& operator=(const SceneWindow&) = delete;

  Canvas& canvas() { return canvas_; }
  /// Shows the areas as they are on the canvas now; returns when the server has done so.
  void show(std::span<const Rect> areas);

 private:
  struct SharedPicture {
    int id = -1;
    std::uint32_t* pixels = nullptr;
  };
  SceneWindow(xcb_connection_t* connection, const xcb_screen_t& screen, SharedPicture picture);

  xcb_connection_t* connection_;
  SharedPicture picture_;
  Canvas canvas_;
  xcb_window_t window_;
  xcb_gcontext_t context_;
  xcb_shm_seg_t segment_;
};

}  // namespace quillbeam::demo
