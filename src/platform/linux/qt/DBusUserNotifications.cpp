#include "platform/linux/qt/DBusUserNotifications.h"

#include <unistd.h>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusReply>
#include <QVariantMap>
#include <cstdlib>

#include "platform/Places.h"

namespace quillbeam {

namespace {

constexpr int longestWaitMilliseconds = 5000;
constexpr int expiresAsTheServiceLikes = -1;
const QString serviceName = "org.freedesktop.Notifications";
const QString connectionName = "quillbeam-notifications";

QDBusMessage callOf(const char* method) {
  return QDBusMessage::createMethodCall(serviceName, "/org/freedesktop/Notifications", serviceName, method);
}

Error fromService(const QDBusError& error) {
  const bool isMissing = error.type() == QDBusError::ServiceUnknown || error.type() == QDBusError::Disconnected ||
                         error.type() == QDBusError::NoServer;
  const std::string reason = (error.name() + ": " + error.message()).toStdString();
  return Error(isMissing ? UserNotificationError::noService : UserNotificationError::refused)
      .withUnderlying(Error(CommonError::unsupported).withDescription(reason));
}

QVariantMap hintsFor(const UserNotification& notification) {
  QVariantMap hints{{"desktop-entry", QString(bundleIdentifier.data())}};
  if (notification.sound == NotificationSound::standard) hints["sound-name"] = "message-new-instant";
  return hints;
}

}  // namespace

/// The far end. On its queue only.
class DBusUserNotifications::Service {
 public:
  explicit Service(std::optional<std::string> address) : address_(std::move(address)) {}
  ~Service() {
    if (connection_) QDBusConnection::disconnectFromBus(connectionName);
  }

  Result<void> show(const UserNotification& notification) {
    TRY_VOID(connect());
    QDBusMessage call = callOf("Notify");
    call << QString("Quillbeam") << 0U << QString() << text(notification.title) << body(notification.body)
         << QStringList() << hintsFor(notification) << expiresAsTheServiceLikes;
    const QDBusReply<uint> reply = connection_->call(call, QDBus::Block, longestWaitMilliseconds);
    if (!reply.isValid()) return fromService(reply.error());
    return success;
  }

 private:
  Result<void> connect() {
    if (connection_ && connection_->isConnected()) return success;
    if (!address_) return UserNotificationError::noService;
    QDBusConnection::disconnectFromBus(connectionName);
    connection_ = QDBusConnection::connectToBus(text(*address_), connectionName);
    if (!connection_->isConnected()) return fromService(connection_->lastError());
    const QDBusReply<QStringList> capabilities =
        connection_->call(callOf("GetCapabilities"), QDBus::Block, longestWaitMilliseconds);
    readsMarkup_ = capabilities.isValid() && capabilities.value().contains("body-markup");
    return success;
  }

  static QString text(const std::string& utf8) { return QString::fromStdString(utf8); }
  QString body(const std::string& plain) const { return readsMarkup_ ? text(plain).toHtmlEscaped() : text(plain); }

  const std::optional<std::string> address_;
  std::optional<QDBusConnection> connection_;
  bool readsMarkup_ = false;
};

DBusUserNotifications::DBusUserNotifications(Dispatch& dispatch, std::optional<std::string> busAddress)
    : service_(std::make_unique<Service>(std::move(busAddress))),
      queue_(dispatch.makeSerialQueue("io.quillbeam.app.notifications")) {}

DBusUserNotifications::~DBusUserNotifications() = default;

Task<void> DBusUserNotifications::add(UserNotification notification) {
  auto show = [this, notification = std::move(notification)] { return service_->show(notification); };
  co_return co_await runOn<void>(*queue_, std::move(show));
}

std::optional<std::string> sessionBusAddress() {
  if (const char* given = std::getenv("DBUS_SESSION_BUS_ADDRESS"); given != nullptr && *given != '\0') return given;
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (runtime == nullptr || *runtime != '/') return std::nullopt;
  const std::string socket = std::string(runtime) + "/bus";
  if (::access(socket.c_str(), R_OK | W_OK) != 0) return std::nullopt;
  return "unix:path=" + socket;
}

}  // namespace quillbeam
