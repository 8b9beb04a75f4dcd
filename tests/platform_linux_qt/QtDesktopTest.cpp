#include <gtest/gtest.h>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QGuiApplication>
#include <QQuickWindow>
#include <QTest>
#include <chrono>
#include <optional>

#include "base/TaskScope.h"
#include "platform/linux/posix/LinuxDispatch.h"
#include "platform/linux/qt/DBusUserNotifications.h"
#include "platform/linux/qt/QtWindowSystem.h"
#include "platform/sim/SimLogging.h"
#include "support/PrivateBus.h"

namespace quillbeam {
namespace {

using namespace std::chrono_literals;

/// A process with windows that nobody sees, and its main queue.
struct Desktop {
  using Answer = std::optional<Result<void>>;
  Answer add(const std::optional<std::string>& busAddress, UserNotification notification) {
    DBusUserNotifications notifications(dispatch, busAddress);
    TaskScope tasks(dispatch.main());
    Answer answer;
    tasks.start(notifications.add(std::move(notification)), [&](Result<void> added) { answer = std::move(added); });
    for (int wait = 0; wait < 200 && !answer; ++wait) runFor(20ms);
    return answer;
  }
  void runFor(std::chrono::milliseconds duration) { QTest::qWait(static_cast<int>(duration.count())); }
  LinuxDispatch dispatch;
  SimSystemLog log;
  QtWindowSystem windows{log,
                         {.platform = "offscreen", .mainDescriptor = dispatch.mainDescriptor(), .drainMain = [this] {
                            dispatch.drainMain();
                          }}};
};

struct HidingDelegate : MainWindow::Delegate {
  void windowCloseRequested() override { ++requests; }
  int requests = 0;
};

/// The service of a desktop: takes every notification and remembers it.
class FakeService : public QDBusVirtualObject {
 public:
  explicit FakeService(const std::string& address)
      : connection_(QDBusConnection::connectToBus(QString::fromStdString(address), "fake-service")) {
    connection_.registerVirtualObject("/org/freedesktop/Notifications", this);
    connection_.registerService("org.freedesktop.Notifications");
  }
  ~FakeService() override { QDBusConnection::disconnectFromBus("fake-service"); }

  QString introspect(const QString&) const override { return {}; }
  bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
    if (message.member() == "GetCapabilities") {
      return connection.send(message.createReply(QStringList{"body", "body-markup"}));
    }
    notifications.push_back(message.arguments());
    return connection.send(message.createReply(uint(7)));
  }

  std::vector<QList<QVariant>> notifications;

 private:
  QDBusConnection connection_;
};

TEST(QtDesktop, showsAWindowThatACloseLeavesToItsOwner) {
  Desktop desktop;
  HidingDelegate delegate;
  auto made = desktop.windows.makeMainWindow(delegate);
  ASSERT_TRUE(made) << made.error().fullDescription();
  auto& window = **made;
  EXPECT_FALSE(window.isVisible());
  window.makeKeyAndOrderFront();
  desktop.runFor(50ms);
  ASSERT_TRUE(window.isVisible());

  auto* shown = qobject_cast<QQuickWindow*>(QGuiApplication::topLevelWindows().front());
  const QImage waiting = shown->grabWindow();
  window.setUserInterfaceState(UserInterfaceState::connected);
  EXPECT_NE(shown->grabWindow(), waiting);

  shown->close();
  EXPECT_EQ(delegate.requests, 1);
  EXPECT_TRUE(window.isVisible());
  window.orderOut();
  EXPECT_FALSE(window.isVisible());
}

TEST(QtDesktop, turnsTheEndOfTheSessionIntoAnOrderlyEnd) {
  Desktop desktop;
  bool ended = false;
  desktop.windows.onEnd([&] {
    ended = true;
    desktop.dispatch.main().async([&] { desktop.windows.stop(); });
  });
  desktop.dispatch.main().async([] { QGuiApplication::quit(); });
  desktop.windows.run();
  EXPECT_TRUE(ended);
}

TEST(DBusUserNotifications, showsPlainTextAsItIs) {
  PrivateBus bus;
  Desktop desktop;
  FakeService service(bus.address());
  const auto answer = desktop.add(bus.address(), {.title = "A & B", .body = "1 < 2"});
  ASSERT_TRUE(answer && answer->has_value());
  ASSERT_EQ(service.notifications.size(), 1U);
  const auto& arguments = service.notifications.front();
  EXPECT_EQ(arguments[3].toString(), "A & B");
  EXPECT_EQ(arguments[4].toString(), "1 &lt; 2") << "the service reads markup";
}

TEST(DBusUserNotifications, saysThatNobodyShowsThem) {
  PrivateBus bus;
  Desktop desktop;
  for (const auto& address : {std::optional<std::string>(), std::optional(bus.address())}) {
    Desktop::Answer answer = desktop.add(address, {.title = "t", .body = "b"});
    ASSERT_TRUE(answer);
    EXPECT_TRUE(answer->error().is(UserNotificationError::noService)) << answer->error().fullDescription();
  }
}

}  // namespace
}  // namespace quillbeam
