#pragma once

#include <xcb/xcb.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/Result.h"

namespace quillbeam {

struct XcbFree {
  void operator()(void* memory) const { std::free(memory); }
};
/// A reply, event or error of libxcb, which hands them out by malloc.
template <class T>
using XcbOwned = std::unique_ptr<T, XcbFree>;

/// Extensions that the server has, in a version that serves. Event numbers are the extension's first.
struct X11Extensions {
  bool sharedMemory = false;
  bool regions = false;  ///< XFixes
  std::optional<std::uint8_t> damageEvents;
  std::optional<std::uint8_t> randrEvents;
};

/// A connection to one X server. Used by one thread at a time. Nothing here throws or ends the process: after the
/// server went away every request fails, `isAlive` is false and callers answer `lost()`.
class X11Connection {
 public:
  /// `displayName` as in $DISPLAY; empty stands for $DISPLAY itself. `ScreenCaptureError::noDisplayServer` names what
  /// did not answer.
  static Result<std::unique_ptr<X11Connection>> open(const std::string& displayName);
  ~X11Connection();
  X11Connection(const X11Connection&) = delete;
  X11Connection& operator=(const X11Connection&) = delete;

  xcb_connection_t* handle() const { return connection_; }
  const xcb_screen_t& screen() const { return screen_; }
  std::uint32_t root() const;
  const X11Extensions& extensions() const { return extensions_; }

  bool isAlive() const;
  /// What a request without an answer means: `ScreenCaptureError::connectionLost` when the server is gone, else
  /// `X11Error::requestRefused`.
  Error failure() const;

  /// The next event that has arrived, without waiting.
  XcbOwned<xcb_generic_event_t> nextEvent();
  /// 0 when no client ever used the name.
  std::uint32_t atom(std::string_view name) const;

 private:
  X11Connection(xcb_connection_t* connection, const xcb_screen_t& screen);
  void findExtensions();

  xcb_connection_t* connection_;
  const xcb_screen_t& screen_;  // in the connection's setup data
  X11Extensions extensions_;
};

}  // namespace quillbeam
