#include "platform/linux/x11/X11Content.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string_view>

#include "platform/linux/x11/X11Permissions.h"
#include "support/PrivateDisplay.h"

namespace quillbeam {
namespace {

using namespace std::string_view_literals;

void setProperty(PrivateDisplay& display, xcb_window_t window, xcb_atom_t property, xcb_atom_t type,
                 std::string_view text) {
  xcb_change_property(display.connection(), XCB_PROP_MODE_REPLACE, window, property, type, 8,
                      static_cast<std::uint32_t>(text.size()), text.data());
}

xcb_atom_t atom(PrivateDisplay& display, std::string_view name) {
  auto cookie = xcb_intern_atom(display.connection(), 0, static_cast<std::uint16_t>(name.size()), name.data());
  auto* reply = xcb_intern_atom_reply(display.connection(), cookie, nullptr);
  const auto atom = reply->atom;
  std::free(reply);
  return atom;
}

xcb_window_t openWindow(PrivateDisplay& display) {
  const auto window = xcb_generate_id(display.connection());
  xcb_create_window(display.connection(), XCB_COPY_FROM_PARENT, window, display.screen().root, 10, 10, 100, 50, 0,
                    XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
  xcb_map_window(display.connection(), window);
  return window;
}

TEST(X11Content, listsDisplaysAndNamesWindowsWithAndWithoutAWindowManager) {
  PrivateDisplay display(640, 360);
  QB_NEEDS_DISPLAY(display);
  const auto document = openWindow(display);
  setProperty(display, document, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, "old name");
  setProperty(display, document, atom(display, "_NET_WM_NAME"), atom(display, "UTF8_STRING"), "Übersicht");
  setProperty(display, document, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, "main\0Editor\0"sv);
  const auto bare = openWindow(display);
  const auto hidden = openWindow(display);
  xcb_unmap_window(display.connection(), hidden);
  display.synchronize();

  const std::vector<ShareableWindow> both{{document, "Übersicht", "Editor"}, {bare, "", ""}};
  auto content = readShareableContent(display.name());
  ASSERT_TRUE(content);
  ASSERT_EQ(content->displays.size(), 1u);
  EXPECT_EQ(content->displays.front().width, 640);
  EXPECT_EQ(content->displays.front().height, 360);
  EXPECT_EQ(content->windows, both);

  const xcb_window_t clients[] = {bare, document};
  xcb_change_property(display.connection(), XCB_PROP_MODE_REPLACE, display.screen().root,
                      atom(display, "_NET_CLIENT_LIST_STACKING"), XCB_ATOM_WINDOW, 32, 2, clients);
  display.synchronize();
  content = readShareableContent(display.name());
  ASSERT_TRUE(content);
  EXPECT_EQ(content->windows, (std::vector<ShareableWindow>{both[1], both[0]})) << "the manager's order";
}

TEST(X11Permissions, grantsTheScreenWhereADisplayAnswers) {
  PrivateDisplay display;
  QB_NEEDS_DISPLAY(display);
  EXPECT_TRUE(X11Permissions(display.name()).preflightScreenCaptureAccess());
  display.kill();
  X11Permissions permissions(display.name());
  EXPECT_FALSE(permissions.preflightScreenCaptureAccess());
  EXPECT_FALSE(permissions.requestScreenCaptureAccess());
}

}  // namespace
}  // namespace quillbeam
