#include <gmock/gmock.h>

#include "app/Connected.h"

namespace quillbeam {
namespace {

namespace names = channel_names;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

/// A UI layer that listens to the window control channel.
struct ConnectedToWindow : Connected {
  explicit ConnectedToWindow(SimWorld& simWorld)
      : Connected(simWorld), control(*client, std::string(names::windowControl)) {
    control.setCallHandler([this](MethodCall call, MethodResult) {
      heard.push_back(call.method + (call.arguments.isNil()            ? ""
                                     : call.arguments.asBool() == true ? " true"
                                                                       : " false"));
    });
    world.dispatch.runUntilIdle();
  }
  std::vector<std::string> takeHeard() {
    world.dispatch.runUntilIdle();
    return std::exchange(heard, {});
  }

  MethodChannel control;
  std::vector<std::string> heard;
};

std::vector<std::string> linesOf(SimWorld& world, std::string_view category) {
  std::vector<std::string> lines;
  for (const auto& line : world.systemLog.lines()) {
    if (line.category == category) lines.push_back(line.text);
  }
  return lines;
}

TEST(Application, aCloseOnlyHidesTheWindowAndASecondStartBringsItBack) {
  SimWorld world;
  ConnectedToWindow ui(world);
  EXPECT_TRUE(world.windowSystem.isWindowVisible());

  world.windowSystem.close();
  EXPECT_THAT(ui.takeHeard(), ElementsAre("updateWindowVisibility false", "updateWindowVisibility false"));
  EXPECT_FALSE(world.windowSystem.isWindowVisible());
  EXPECT_THAT(linesOf(world, "MainFlutterWindow"),
              Contains("🏠 Window performClose requested - hiding window instead of quitting app"));

  EXPECT_EQ(ui.call(names::application, "reopen"), MethodReply(Value(true)));
  EXPECT_THAT(ui.takeHeard(), ElementsAre("onDockIconClicked", "updateWindowVisibility true"));
  EXPECT_TRUE(world.windowSystem.isWindowVisible());

  EXPECT_EQ(ui.call(names::windowControl, "hideWindow"), MethodReply(Value()));
  EXPECT_THAT(ui.takeHeard(), ElementsAre("updateWindowVisibility false"));
  EXPECT_EQ(ui.call(names::windowControl, "showWindow"), MethodReply(Value()));
  EXPECT_EQ(world.windowSystem.orderedFront(), 3);
}

TEST(Application, itsWindowSaysWhetherAUserInterfaceIsConnected) {
  SimWorld world;
  Platform platform = world.platform();
  const auto native = NativeHalf::create(platform, {"serve", defaultSocketPath(platform.places)}).value();
  auto client = SocketMessengerClient::connect(platform.localSockets, native->socketPath(), platform.dispatch.main());
  world.dispatch.runUntilIdle();
  EXPECT_EQ(world.windowSystem.shownState(), UserInterfaceState::connected);
  client->reset();
  world.dispatch.runUntilIdle();
  EXPECT_EQ(world.windowSystem.shownState(), UserInterfaceState::missing);
}

TEST(Application, livesWithoutAWindowWhereThereIsNoDisplay) {
  SimWorld world;
  world.windowSystem.hasDisplay = false;
  ConnectedToWindow ui(world);
  EXPECT_EQ(ui.call(names::application, "reopen"), MethodReply(Value(false)));
  EXPECT_EQ(ui.call(names::windowControl, "showWindow"), MethodReply(Value()));
  EXPECT_THAT(ui.takeHeard(), IsEmpty());
  EXPECT_THAT(linesOf(world, "AppDelegate"), Contains("⚠️ Could not find main window to show"));
}

TEST(Application, staysWhenItsLastWindowIsClosed) {
  SimWorld world;
  Connected ui(world);
  EXPECT_EQ(world.windowSystem.applicationDelegate->applicationShouldTerminateAfterLastWindowClosed(),
            ApplicationDelegate::Termination::stay);
  ui.native.reset();
  EXPECT_EQ(world.windowSystem.applicationDelegate, nullptr);
  EXPECT_FALSE(world.windowSystem.hasWindow());
}

TEST(NativeNotificationChannel, handsNotificationsToTheDesktopAndLogsItsRefusal) {
  SimWorld world;
  Connected ui(world);
  const auto show = [&](ValueMap arguments) {
    return ui.call(names::nativeNotification, "showNotification", std::move(arguments));
  };
  EXPECT_EQ(show({{"title", "Uploaded"}}), MethodReply(MethodError{"INVALID_ARGUMENTS", "Title and body required"}));
  EXPECT_EQ(show({{"title", "Uploaded"}, {"body", "Weekly"}}), MethodReply(Value()));
  EXPECT_EQ(show({{"title", "Uploaded"}, {"body", "Daily"}}), MethodReply(Value()));
  const auto& shown = world.userNotifications.shown;
  ASSERT_EQ(shown.size(), 2U);
  EXPECT_EQ(shown[0].body, "Weekly");
  EXPECT_EQ(shown[0].sound, NotificationSound::standard);

  world.userNotifications.failsWith = UserNotificationError::noService;
  EXPECT_EQ(show({{"title", "Uploaded"}, {"body", "Late"}}), MethodReply(Value()));
  EXPECT_THAT(linesOf(world, "AppDelegate"),
              Contains("❌ Native notification error: No notification service runs on this desktop"));
}

}  // namespace
}  // namespace quillbeam
