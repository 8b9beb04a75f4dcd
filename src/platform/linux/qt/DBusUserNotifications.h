#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/Dispatch.h"
#include "platform/desktop/UserNotifications.h"

namespace quillbeam {

/// The freedesktop notification service (org.freedesktop.Notifications) on the user's session bus. Calls block a queue
/// of its own.
class DBusUserNotifications final : public UserNotifications {
 public:
  /// `busAddress`: as in $DBUS_SESSION_BUS_ADDRESS; nullopt where there is no session bus.
  DBusUserNotifications(Dispatch& dispatch, std::optional<std::string> busAddress);
  ~DBusUserNotifications() override;

  Task<void> add(UserNotification notification) override;

 private:
  class Service;
  std::unique_ptr<Service> service_;
  std::unique_ptr<DispatchQueue> queue_;
};

/// The session bus of this process's user: $DBUS_SESSION_BUS_ADDRESS, else the socket "bus" in $XDG_RUNTIME_DIR. None
/// is ever started.
std::optional<std::string> sessionBusAddress();

}  // namespace quillbeam
