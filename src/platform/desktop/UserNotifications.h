#pragma once

#include <string>
#include <string_view>

#include "base/Task.h"

namespace quillbeam {

enum class NotificationSound { none, standard };

/// A message to the user, shown by the desktop.
struct UserNotification {
  std::string title;  ///< plain text, as the body
  std::string body;
  NotificationSound sound = NotificationSound::standard;
};

enum class UserNotificationError {
  noService,  ///< nothing on this desktop shows notifications
  refused,    ///< underlying: the service's reason
};
std::string describe(UserNotificationError error);
constexpr std::string_view errorDomain(UserNotificationError) { return "UserNotificationError"; }

/// The desktop's notification service. Main queue; nothing blocks it.
class UserNotifications {
 public:
  virtual ~UserNotifications() = default;
  /// Delivers at once; resumes when the service has taken it or has not answered for some seconds. Several are
  /// delivered in the order of the calls.
  virtual Task<void> add(UserNotification notification) = 0;
};

}  // namespace quillbeam
